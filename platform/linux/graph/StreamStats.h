// Statistics of the platform for tools and tests. The camera library does not use them.
#pragma once

#include <atomic>
#include <cstdint>

#include "Export.h"

namespace graph {

// What happened to the frames of the latest run of a graph. Final once the graph has been stopped.
struct StreamStats {
  std::uint64_t delivered = 0;    // passed to the callback
  std::uint64_t tooShort = 0;     // dropped: smaller than a whole picture
  std::uint64_t damaged = 0;      // dropped: marked as damaged by the driver
  std::uint64_t undecodable = 0;  // dropped: corrupt or truncated JPEG pictures
  std::uint64_t missed = 0;       // gaps in the driver's sequence numbers, or frames out of order
  bool isDisconnected = false;    // the device was disconnected while streaming
};
NUVEQ_PLATFORM_EXPORT StreamStats LatestStreamStats();

// The counters behind LatestStreamStats.
struct LiveStreamStats {
  std::atomic<std::uint64_t> delivered = 0;
  std::atomic<std::uint64_t> tooShort = 0;
  std::atomic<std::uint64_t> damaged = 0;
  std::atomic<std::uint64_t> undecodable = 0;
  std::atomic<std::uint64_t> missed = 0;
  std::atomic<bool> isDisconnected = false;
};
LiveStreamStats& CurrentStreamStats();
// Called at the start of each run.
void ResetStreamStats();

}  // namespace graph
