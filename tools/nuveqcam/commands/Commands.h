// The tool's commands. The Run functions throw Failure unless noted otherwise.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "camera/Camera.h"
#include "camera/DefaultSize.h"
#include "cli/Arguments.h"
#include "cli/Failure.h"
#include "cli/Terminal.h"
#include "recording/StreamEnd.h"

namespace nuveqcam {

// How often a command that waits for packets checks for stop signals.
inline constexpr std::chrono::milliseconds kPollInterval{20};
// Capacity of a command's packet queue, enough for more than a minute of the stream. PacketQueue.h describes
// the behavior of a full queue.
inline constexpr std::size_t kQueueBytes = std::size_t{16} << 20U;

struct CommandContext {
  const Options& options;
  const Console& console;
  Camera& camera;
  Timeouts timeouts;
};

// Runs the command in the options, which must not be kNone. Prints failures to err and returns the exit
// code.
ExitCode RunTool(const Options& options, const Console& console, const Timeouts& timeouts = {});

void RunList(const CommandContext& context);
void RunRecord(const CommandContext& context);
void RunSnapshot(const CommandContext& context);
void RunView(const CommandContext& context);
// Returns the exit code: for this command, a missing camera is a result and not a failure.
ExitCode RunDoctor(const CommandContext& context);
// Returns the exit code: for this command, a camera that fails is a result.
ExitCode RunProbe(const CommandContext& context);

// The output of list. The camera is the first device without an exclusion reason.
std::string ListText(const Capabilities& camera, const std::vector<CaptureDeviceInfo>& devices);

// How a command may open the camera.
struct CameraPlan {
  std::string id;
  SizePlan sizes;

  CameraRequest Request(const Size& size) const { return {id, size, sizes.fps}; }
};
// A plan without a choice.
CameraPlan PlanOnly(const CameraRequest& request);
// The size and rate in the options, or those that the camera offers. Throws Failure (kCannotOpen) if neither
// has a size.
CameraPlan PlanRequests(const Options& options, const Capabilities& camera);

}  // namespace nuveqcam
