// A PC that is not there: a laptop with a camera in its lid and another one plugged in, for demonstrations
// and tests. A host puts it in the place of the machine's own devices with SetDeviceProvider.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "devices/DeviceProvider.h"

namespace simulated {

enum class Pace {
  kRealTime,  // at the format's rate; a frame that nobody took in time comes late, none is left out
  kUnpaced,   // as fast as frames are taken
};

// What the built-in camera of a real laptop offers.
NUVEQ_PLATFORM_EXPORT std::vector<graph::VideoFormat> LaptopCameraFormats();

struct SimulatedPcSettings {
  // A clip that the built-in camera plays over and over from its beginning, scaled to its picture: any file
  // that libavformat reads. A frame of the camera is a picture of the clip, whatever the clip's rate. Empty:
  // the numbered picture (NumberedPicture.h), its numbers counting from 0 at every start.
  std::string clip;
  Pace pace = Pace::kRealTime;
  bool hasBuiltInCamera = true;
  bool hasPlugInCamera = true;
  std::vector<graph::VideoFormat> formats = LaptopCameraFormats();  // of the built-in camera
};

class NUVEQ_PLATFORM_EXPORT SimulatedPc : public devices::DeviceProvider {
 public:
  // Throws std::runtime_error, with a text for people, when the clip cannot be played, and
  // std::invalid_argument for formats other than YUYV and MJPG with even sides of at least 64 by 48 pixels.
  explicit SimulatedPc(const SimulatedPcSettings& settings = {});
  ~SimulatedPc() override;

  std::vector<devices::CaptureDevice> CaptureDevices() override;
  std::vector<devices::UsbDevice> UsbDevices() override;
  // As on a laptop whose firmware describes its ports.
  std::vector<devices::UsbDetails> DescribeUsbDevices() override;

  // The built-in camera goes, also while it is streaming, and comes back. From any thread.
  void RemoveBuiltInCamera();
  void ReturnBuiltInCamera();
  // The built-in camera stops delivering, or goes on, without saying so.
  void Freeze(bool frozen);

 private:
  struct State;
  std::shared_ptr<State> m_state;
};

}  // namespace simulated
