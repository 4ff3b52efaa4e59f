// The system call in which a thread is blocked.
#pragma once

#include <sys/types.h>

#include <fstream>
#include <string>

namespace support {

// Returns the number of the system call (SYS_...), -1 if the thread runs or does not exist.
inline long SystemCallOf(pid_t thread) {
  std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/syscall");
  long number = -1;
  return file >> number ? number : -1;
}

}  // namespace support
