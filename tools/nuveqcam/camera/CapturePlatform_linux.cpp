#include "camera/CapturePlatform.h"

#include <filesystem>
#include <memory>
#include <stdexcept>

#include "cli/Failure.h"
#include "cli/Text.h"
#include "devices/DeviceProvider.h"
#include "graph/StreamStats.h"
#include "simulated/SimulatedPc.h"

namespace nuveqcam {

SystemSession::SystemSession() = default;

SystemSession::~SystemSession() = default;

void UseSimulatedPc(const std::string& clip) {
  std::error_code ignored;
  if (!clip.empty() && std::filesystem::exists(clip, ignored) &&
      !std::filesystem::is_regular_file(clip, ignored)) {
    // The clip is reopened each time the camera starts.
    throw Failure(ExitCode::kUsage, "cannot play " + SanitizeForTerminal(clip) +
                                        ": it is not a regular file; specify a video file with --simulated");
  }
  simulated::SimulatedPcSettings settings;
  settings.clip = clip;
  try {
    devices::SetDeviceProvider(std::make_shared<simulated::SimulatedPc>(settings));
  } catch (const std::runtime_error& error) {
    throw Failure(ExitCode::kUsage,
                  SanitizeForTerminal(error.what()) + "; specify another video file with --simulated");
  }
}

bool IsCameraDisconnected() { return graph::LatestStreamStats().isDisconnected; }

std::optional<CaptureCounters> LatestCaptureCounters() {
  const graph::StreamStats stats = graph::LatestStreamStats();
  const CaptureCounters counters{stats.missed, stats.tooShort + stats.damaged + stats.undecodable};
  if (stats.delivered + counters.missed + counters.damaged == 0) {
    return std::nullopt;
  }
  return counters;
}

std::vector<CaptureDeviceInfo> ListCaptureDevices() {
  std::vector<CaptureDeviceInfo> devices;
  try {
    for (const devices::CaptureDevice& device : devices::CurrentDeviceProvider()->CaptureDevices()) {
      devices.push_back({device.name, device.node, device.exclusionReason});
    }
  } catch (const std::exception&) {
    // The list is only for diagnosis; the command continues without it.
    devices.clear();
  }
  return devices;
}

}  // namespace nuveqcam
