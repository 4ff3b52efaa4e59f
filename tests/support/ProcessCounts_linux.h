// The number of threads and open descriptors of this process.
#pragma once

#include <filesystem>

namespace support {

inline long CountEntries(const char* folder) {
  return std::distance(std::filesystem::directory_iterator(folder), std::filesystem::directory_iterator());
}

inline long ThreadCount() { return CountEntries("/proc/self/task"); }

// Without the descriptor that reads the folder.
inline long DescriptorCount() { return CountEntries("/proc/self/fd") - 1; }

}  // namespace support
