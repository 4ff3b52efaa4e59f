// A device provider with one camera, which a test implements.
#pragma once

#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "devices/DeviceProvider.h"

namespace linux_support {

class SingleCameraProvider : public devices::DeviceProvider {
 public:
  // make: creates the camera's source.
  explicit SingleCameraProvider(std::function<std::unique_ptr<graph::CaptureSource>()> make)
      : m_make(std::move(make)) {}

  std::vector<devices::CaptureDevice> CaptureDevices() override {
    return {{"@device:single", "Single camera", "nowhere", "", m_make}};
  }
  std::vector<devices::UsbDevice> UsbDevices() override { return {}; }

 private:
  std::function<std::unique_ptr<graph::CaptureSource>()> m_make;
};

}  // namespace linux_support
