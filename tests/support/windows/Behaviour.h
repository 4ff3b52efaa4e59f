// How the cameras of this process behave, and what they have delivered.
#pragma once

#include <atomic>

#include "graph/VideoFormat.h"
#include "support/windows/CameraFixtures.h"

namespace fixtures {

struct CameraCounters {
  std::atomic<std::uint64_t> delivered{0};
  std::atomic<std::uint64_t> runs{0};
};

CameraBehaviour CurrentBehaviour(Camera camera);
CameraCounters& CountersOf(Camera camera);
std::atomic<long>& StreamingThreadCount();
bool IsPaced(const CameraBehaviour& behaviour);

}  // namespace fixtures
