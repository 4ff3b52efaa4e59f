#include "Platform.h"

#include <memory>
#include <stdexcept>

#include "DeviceTree.h"
#include "Failure.h"
#include "SimulatedPc.h"
#include "Text.h"

void UseSimulatedPc(const std::string& clip) {
  SimulatedPcSettings settings;
  settings.clip = clip;
  try {
    UseDeviceTree(std::make_shared<SimulatedPc>(settings));
  } catch (const std::runtime_error& error) {
    throw Failure(ExitCode::kUsage, Printable(error.what()) + "; name another video file after --simulated");
  }
}

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
