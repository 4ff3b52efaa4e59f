#include "camera/CapturePlatform.h"

#include <filesystem>
#include <memory>
#include <stdexcept>

#include "cli/Failure.h"
#include "cli/Text.h"
#include "devices/DeviceProvider.h"
#include "graph/StreamStats.h"
#include "recording/Libav.h"
#include "simulated/SimulatedPc.h"

// libav's own remarks say nothing that the tool's messages do not.
SystemSession::SystemSession(bool isVerbose) { av_log_set_level(isVerbose ? AV_LOG_ERROR : AV_LOG_QUIET); }

SystemSession::~SystemSession() = default;

void UseSimulatedPc(const std::string& clip) {
  std::error_code ignored;
  if (!clip.empty() && std::filesystem::exists(clip, ignored) &&
      !std::filesystem::is_regular_file(clip, ignored)) {
    // It is read from its beginning every time the camera starts.
    throw Failure(ExitCode::kUsage, "cannot play " + SanitizeForTerminal(clip) +
                                        ": it is not a file that can be read again; name a video file after "
                                        "--simulated");
  }
  simulated::SimulatedPcSettings settings;
  settings.clip = clip;
  try {
    devices::SetDeviceProvider(std::make_shared<simulated::SimulatedPc>(settings));
  } catch (const std::runtime_error& error) {
    throw Failure(ExitCode::kUsage,
                  SanitizeForTerminal(error.what()) + "; name another video file after --simulated");
  }
}

bool IsCameraDisconnected() { return graph::LatestStreamStats().isDisconnected; }

std::vector<CaptureDeviceInfo> ListCaptureDevices() {
  std::vector<CaptureDeviceInfo> seen;
  try {
    for (const devices::CaptureDevice& device : devices::CurrentDeviceProvider()->CaptureDevices()) {
      seen.push_back({device.name, device.node, device.exclusionReason});
    }
  } catch (const std::exception&) {
    // The list only explains; what it explains is reported without it.
    seen.clear();
  }
  return seen;
}
