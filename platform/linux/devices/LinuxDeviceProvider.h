// The machine's own devices: V4L2 nodes, and USB devices from sysfs.
#pragma once

#include "devices/DeviceProvider.h"

namespace devices {

class LinuxDeviceProvider : public DeviceProvider {
 public:
  // Video capture nodes in the order of their display names. A node that cannot be opened is listed if it is
  // its camera's first node in sysfs; using it then reports the error.
  std::vector<CaptureDevice> CaptureDevices() override;
  std::vector<UsbDevice> UsbDevices() override;
  std::vector<UsbDetails> DescribeUsbDevices() override;
  std::vector<VideoNodeDetails> DescribeVideoNodes() override;
};

}  // namespace devices
