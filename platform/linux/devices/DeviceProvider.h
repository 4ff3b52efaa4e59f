// The devices of a PC: what the device enumerator and the SetupAPI functions present. The machine's own by
// default; a host can put another one in its place, such as a simulated PC.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Export.h"
#include "devices/DeviceDetails.h"
#include "graph/CaptureSource.h"

struct CaptureDevice {
  // Names the device for good, in lower case and in the form of Windows. That of a USB camera contains the
  // instance id of its interface in lower case with "#" for "\".
  std::string displayName;
  std::string name;  // for people: "Integrated Camera", UTF-8
  std::string node;  // for people: "/dev/video0", or what else says where it is
  // For people: why the device is not the PC's own camera; empty for one that is.
  std::string whyNotBuiltIn;
  // Makes the camera. The device is not touched before the source's first call.
  std::function<std::unique_ptr<CaptureSource>()> makeSource;
};

struct UsbDevice {
  std::string id;           // instance id: USB\VID_04F2&PID_B6BE\...; names the device for good
  bool isRemovable = true;  // false for one that is fixed inside the PC
  // Instance id of its lowest interface with a capture device; of its lowest interface if it has no capture
  // device; empty if it has no interface.
  std::string firstChildId;
};

class DeviceTree {
 public:
  DeviceTree() = default;
  DeviceTree(const DeviceTree&) = delete;
  DeviceTree& operator=(const DeviceTree&) = delete;
  virtual ~DeviceTree() = default;

  // What is there at this moment, in an order that does not change from call to call.
  virtual std::vector<CaptureDevice> CaptureDevices() = 0;
  virtual std::vector<UsbDevice> UsbDevices() = 0;

  // For people who look for what is wrong; the camera library never asks. In the order of UsbDevices, and in
  // that of the nodes' numbers with those that are no capture devices. None where nothing more is known.
  virtual std::vector<UsbDetails> DescribeUsbDevices() { return {}; }
  virtual std::vector<VideoNodeDetails> DescribeVideoNodes() { return {}; }
};

// An instance id as it stands in display names: lower case, with "#" for "\".
NUVEQ_PLATFORM_EXPORT std::string DisplayForm(std::string id);

// The PC from here on; null means the machine's own. For hosts, before the library's first call, from any
// thread. Graphs that were built already keep their cameras.
NUVEQ_PLATFORM_EXPORT void UseDeviceTree(std::shared_ptr<DeviceTree> tree);
NUVEQ_PLATFORM_EXPORT std::shared_ptr<DeviceTree> CurrentDeviceTree();
