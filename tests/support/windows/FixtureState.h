// State of the cameras in this process: their behaviour and counters.
#pragma once

#include <atomic>

#include "support/windows/CameraFixtures.h"

namespace fixtures {

CameraBehaviour CurrentBehaviour(Camera camera);
// Since the camera's last Run.
std::atomic<std::uint64_t>& DeliveredFrameCount(Camera camera);
// Of the camera's last Run.
std::atomic<Layout>& LastLayout(Camera camera);
std::atomic<long>& StreamingThreadCount();

}  // namespace fixtures
