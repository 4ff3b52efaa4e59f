// State of the cameras in this process: their behaviour and counters.
#pragma once

#include <atomic>

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
