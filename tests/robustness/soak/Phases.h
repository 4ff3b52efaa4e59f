// The two phases of the soak test. Both return a human-readable summary and throw SoakFailure.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "simulated/SimulatedPc.h"
#include "support/video/NumberReader.h"

namespace soak {

using video::PictureSize;

// Number of frames in the pool of the library.
constexpr std::uint64_t kPoolFrames = 5;

// Installs a simulated laptop whose built-in camera offers the formats and delivers frames as fast as they
// are consumed.
std::shared_ptr<simulated::SimulatedPc> UseLaptop(const std::vector<graph::VideoFormat>& formats);
graph::VideoFormat ThirtyFps(std::uint32_t fourCc, PictureSize size);

// Runs one long session.
std::string RunFrames(std::uint64_t frames);

// Runs many short sessions. idleThreads: number of threads of the process while no camera is open.
std::string RunRounds(std::uint64_t rounds, long idleThreads);

}  // namespace soak
