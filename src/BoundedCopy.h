// A copy that cannot overrun its destination.
#pragma once

#include <cstddef>
#include <cstring>

// Copies length bytes to the start of a destination of size bytes and clears the remainder. A source that
// does not fit is refused: the destination is cleared as a whole, and the answer is false.
inline bool BoundedCopy(void* destination, std::size_t size, const void* source, std::size_t length) {
  if (length > size) {
    std::memset(destination, 0, size);
    return false;
  }
  std::memcpy(destination, source, length);
  std::memset(static_cast<unsigned char*>(destination) + length, 0, size - length);
  return true;
}
