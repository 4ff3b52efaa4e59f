// What a host can ask the platform for people and for tests; the camera library never does.
#pragma once

#include <cstdint>

#include "devices/DeviceProvider.h"

// What became of the frames of the latest run of a graph. Complete once the graph has been stopped.
struct StreamCounters {
  std::uint64_t delivered = 0;    // passed to the callback
  std::uint64_t tooShort = 0;     // dropped: not a whole picture by its size
  std::uint64_t damaged = 0;      // dropped: marked as such by the driver
  std::uint64_t undecodable = 0;  // dropped: corrupt or truncated JPEG pictures
  std::uint64_t missed = 0;       // never seen, or behind a later one, by the driver's numbering
  bool isLost = false;            // the device went while it was streaming
};
NUVEQ_PLATFORM_EXPORT StreamCounters LatestStreamCounters();

// Platform objects and task memory blocks that are alive, for leak tests.
NUVEQ_PLATFORM_EXPORT std::uint64_t LiveObjects();
NUVEQ_PLATFORM_EXPORT std::uint64_t LiveTaskBlocks();
