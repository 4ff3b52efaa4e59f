// The machine's own devices: V4L2 nodes, and USB devices out of sysfs.
#pragma once

#include "devices/DeviceProvider.h"

class LinuxDeviceTree : public DeviceTree {
 public:
  // Nodes that capture video, in the order of their display names. A node that cannot be opened is listed
  // where sysfs has it as its camera's first: what is wrong with it comes out when it is used.
  std::vector<CaptureDevice> CaptureDevices() override;
  std::vector<UsbDevice> UsbDevices() override;
  std::vector<UsbDetails> DescribeUsbDevices() override;
  std::vector<VideoNodeDetails> DescribeVideoNodes() override;
};
