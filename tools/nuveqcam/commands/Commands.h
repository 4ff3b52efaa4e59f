// The tool's commands. Each throws Failure.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "camera/Camera.h"
#include "cli/Arguments.h"
#include "cli/Failure.h"
#include "cli/Terminal.h"
#include "recording/StreamEnd.h"

// How often a command that waits for packets sees whether it has been told to stop.
inline constexpr std::chrono::milliseconds kPollInterval{20};
// Bound of a command's packet queue: more than a minute of the stream. See PacketQueue.h for what happens
// beyond.
inline constexpr std::size_t kQueueBytes = std::size_t{16} << 20U;

// What every command works with.
struct CommandContext {
  const Options& options;
  const Console& console;
  Camera& camera;
  Timeouts patience;
};

// Runs the command of the options, which is not kNone. Reports failures on err; answers the exit code.
ExitCode RunTool(const Options& options, const Console& console, const Timeouts& patience = {});

void RunList(const CommandContext& place);
void RunRecord(const CommandContext& place);
void RunSnapshot(const CommandContext& place);
// Answers the exit code: that no camera is offered is a result here.
ExitCode RunDoctor(const CommandContext& place);

// What list prints. The camera's device is the one seen that is built in.
std::string ListText(const Capabilities& camera, const std::vector<CaptureDeviceInfo>& seen);
// The camera as a JSON object.
std::string CameraJson(const Capabilities& camera);
// One JSON object on one line; camera is null when there is none.
std::string ListJson(const Capabilities* camera, const std::vector<CaptureDeviceInfo>& seen);

// Size and rate of the options where they say so, else the best of what the camera offers. Throws Failure
// (kCannotOpen) when neither says a size.
CameraRequest ChooseRequest(const Options& options, const Capabilities& camera);
