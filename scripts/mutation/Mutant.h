// Force-included into every C++ source of the instrumented build.
#pragma once

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

namespace mutation {

// The number of the active mutant. -1: none.
inline const int active = [] {
  const char* number = std::getenv("NUVEQ_ACTIVE_MUTANT");
  return number == nullptr ? -1 : std::atoi(number);
}();

// A mapped file with one byte for each mutant, which records the mutants that the process reached. Null if
// the run is not traced. A file, because a process that crashes or is killed leaves it.
inline unsigned char* const reached = [] {
  const char* name = std::getenv("NUVEQ_REACHED_MUTANTS");
  const int file = name == nullptr ? -1 : open(name, O_RDWR | O_CLOEXEC);
  struct stat status {};
  void* bytes = MAP_FAILED;
  if (file >= 0) {
    if (fstat(file, &status) == 0) {
      bytes = mmap(nullptr, static_cast<std::size_t>(status.st_size), PROT_READ | PROT_WRITE, MAP_SHARED,
                   file, 0);
    }
    close(file);
  }
  return bytes == MAP_FAILED ? nullptr : static_cast<unsigned char*>(bytes);
}();

inline bool IsActive(int number) {
  if (reached != nullptr) {
    reached[number] = 1;
  }
  return number == active;
}

}  // namespace mutation

#define NUVEQ_MUTANT(number) ::mutation::IsActive(number)
