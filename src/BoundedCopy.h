// Bounds-checked copy.
#pragma once

#include <cstddef>
#include <cstring>

// Copies length bytes to the start of a destination of size bytes and clears the remainder. If the source
// does not fit, clears the whole destination and returns false.
inline bool BoundedCopy(void* destination, std::size_t size, const void* source, std::size_t length) {
  if (length > size) {
    std::memset(destination, 0, size);
    return false;
  }
  std::memcpy(destination, source, length);
  std::memset(static_cast<unsigned char*>(destination) + length, 0, size - length);
  return true;
}
