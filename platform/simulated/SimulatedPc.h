// A simulated laptop with a built-in and a plug-in camera, for demonstrations and tests. A host installs it
// with devices::SetDeviceProvider.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "devices/DeviceProvider.h"

namespace simulated {

enum class Pace {
  kRealTime,  // at the format's rate; frames may be late but are never dropped
  kUnpaced,   // as fast as frames are requested
};

// The formats of a typical built-in camera.
NUVEQ_PLATFORM_EXPORT std::vector<graph::VideoFormat> LaptopCameraFormats();

struct SimulatedPcSettings {
  // A clip that the built-in camera plays in a loop, scaled to its picture size: any file that libavformat
  // reads. Each frame is one picture of the clip, regardless of the clip's rate. If empty, the camera shows
  // the numbered picture (NumberedPicture.h), counting from 0 at every start.
  std::string clip;
  Pace pace = Pace::kRealTime;
  bool hasBuiltInCamera = true;
  bool hasPlugInCamera = true;
  std::vector<graph::VideoFormat> formats = LaptopCameraFormats();  // of the built-in camera
};

class NUVEQ_PLATFORM_EXPORT SimulatedPc : public devices::DeviceProvider {
 public:
  // Throws std::runtime_error with a human-readable text if the clip cannot be played, and
  // std::invalid_argument for formats other than YUYV and MJPG with even sides of at least 64 by 48 pixels.
  explicit SimulatedPc(const SimulatedPcSettings& settings = {});
  ~SimulatedPc() override;

  std::vector<devices::CaptureDevice> CaptureDevices() override;
  std::vector<devices::UsbDevice> UsbDevices() override;
  // As if the firmware described all ports.
  std::vector<devices::UsbDetails> DescribeUsbDevices() override;

  // Unplugs and reconnects the built-in camera, also while it streams. Thread-safe.
  void RemoveBuiltInCamera();
  void ReturnBuiltInCamera();
  // While frozen, the built-in camera delivers no frames and reports no error. Thread-safe.
  void Freeze(bool frozen);

 private:
  struct State;
  std::shared_ptr<State> m_state;
};

}  // namespace simulated
