// What probe finds about the rate of a stream while it runs.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "camera/Camera.h"
#include "recording/PacketQueue.h"

namespace nuveqcam {

// In the words of probe.
struct RateFinding {
  std::string word;    // "tooSlow"
  std::string text;    // human-readable
  std::string advice;  // human-readable
};

struct RunningRate {
  std::optional<double> delivered;    // frames per second; nullopt: not known yet
  std::uint32_t promised = 0;         // frames per second; 0 if delivered is nullopt
  std::vector<RateFinding> findings;  // empty: the rate is as promised, or not known yet
};

// arrivals are those of consecutive packets of the request. The promised rate is the requested one, or the
// highest one that the camera offers at the size if that is lower. Jitter is not judged: it comes and goes.
// The rate is not known if no packet has arrived for a second.
RunningRate JudgeRunningRate(const Capabilities& camera, const CameraRequest& request,
                             std::span<const Clock::time_point> arrivals, Clock::time_point now);

}  // namespace nuveqcam
