// The number of threads and open descriptors of this process.
#pragma once

#include <unistd.h>

#include <filesystem>
#include <string>
#include <thread>

#include "support/WaitFor.h"

namespace support {

inline long CountEntries(const char* folder) {
  return std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator());
}

inline long ThreadCount() { return CountEntries("/proc/self/task"); }

// A sanitizer starts a thread of its own along with the first thread of the program. Starts both, so that
// later counts are comparable, and waits until the first thread has ended. False after a timeout.
inline bool StartSanitizerThread() {
  pid_t first = 0;
  std::thread([&] { first = gettid(); }).join();
  // A joined thread may stay listed for a moment.
  return WaitFor([&] { return !std::filesystem::exists("/proc/self/task/" + std::to_string(first)); });
}

// Without the descriptor that reads the folder.
inline long DescriptorCount() { return CountEntries("/proc/self/fd") - 1; }

}  // namespace support
