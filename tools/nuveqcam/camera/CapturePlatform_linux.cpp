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
    throw Failure(ExitCode::kUsage, "cannot play " + Printable(clip) +
                                        ": it is not a file that can be read again; name a video file after "
                                        "--simulated");
  }
  SimulatedPcSettings settings;
  settings.clip = clip;
  try {
    UseDeviceTree(std::make_shared<SimulatedPc>(settings));
  } catch (const std::runtime_error& error) {
    throw Failure(ExitCode::kUsage, Printable(error.what()) + "; name another video file after --simulated");
  }
}

bool IsCameraDisconnected() { return LatestStreamCounters().isLost; }

std::vector<SeenDevice> SeenDevices() {
  std::vector<SeenDevice> seen;
  try {
    for (const CaptureDevice& device : CurrentDeviceTree()->CaptureDevices()) {
      seen.push_back({device.name, device.node, device.whyNotBuiltIn});
    }
  } catch (const std::exception&) {
    // The list only explains; what it explains is reported without it.
    seen.clear();
  }
  return seen;
}
