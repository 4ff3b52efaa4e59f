// Memory for the buffers of PipeCamera, which paced_run passes to the program. The other programs read a pipe
// and have no capture buffers, so allocating those of the driver is not part of the comparison.
#pragma once

#include <unistd.h>

#include <cstddef>

namespace bench {

// Descriptor of the shared memory in the program.
inline constexpr int kBufferMemory = 3;
inline constexpr std::size_t kMaxBuffers = 4;

// Bytes from one buffer to the next.
inline std::size_t BufferBytes(std::size_t maxFrame) {
  const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  return (maxFrame + page - 1) / page * page;
}

}  // namespace bench
