// The two halves of the soak. What goes wrong is thrown as SoakFailure; the answer is a summary for people.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Progress.h"
#include "SoakOptions.h"
#include "simulated/SimulatedPc.h"

// The frames that the library's pool holds.
constexpr std::uint64_t kPool = 5;

// A laptop whose built-in camera offers these, as fast as its frames are taken, in the place of the machine's
// own devices.
std::shared_ptr<simulated::SimulatedPc> UseLaptop(const std::vector<graph::VideoFormat>& formats);
graph::VideoFormat ThirtyFps(std::uint32_t fourCc, PictureSize size);

// One long session.
std::string RunFrames(std::uint64_t frames, PictureSize size, Progress& progress);

// Many short ones. The process has that many threads when no camera is open.
std::string RunRounds(std::uint64_t rounds, long threadsAtRest, Progress& progress);
