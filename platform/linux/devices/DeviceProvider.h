// Provides the devices of a PC to the device enumerator and the SetupAPI functions: the machine's own by
// default, or those of a replacement such as the simulated PC.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Export.h"
#include "devices/UsbRemovability.h"
#include "graph/CaptureSource.h"

namespace devices {

struct CaptureDevice {
  // Lower case, in the form of Windows's device paths, and the same at every boot. For a USB camera it
  // contains the instance id of the interface in lower case with "#" for "\".
  std::string displayName;
  std::string name;  // human-readable: "Integrated Camera", UTF-8
  std::string node;  // human-readable: "/dev/video0", or another location
  // Human-readable: why the device is not the built-in camera; empty if it is.
  std::string exclusionReason;
  // Creates the camera. The device is not opened before the first call of the source.
  std::function<std::unique_ptr<graph::CaptureSource>()> makeSource;
};

struct UsbDevice {
  std::string id;           // instance id: USB\VID_04F2&PID_B6BE\..., the same at every boot
  bool isRemovable = true;  // false for a device that is fixed inside the PC
  // Instance id of its lowest interface with a capture device; of its lowest interface if it has no capture
  // device; empty if it has no interface.
  std::string firstChildId;
};

// A USB device in more detail, for diagnosis.
struct UsbDetails {
  std::string place;  // bus and ports: "1-5.2"
  std::string name;   // product string, UTF-8; may be empty
  std::string model;  // vendor and product: "04f2:b6be"
  bool isHub = false;
  bool hasVideo = false;     // one of its interfaces has the video class
  std::string id;            // as in UsbDevice
  std::string firstChildId;  // as in UsbDevice
  UsbRemovability removability;
};

// A video node in more detail, for diagnosis.
struct VideoNodeDetails {
  std::string node;  // "/dev/video0"
  std::string name;
  std::string usbPlace;         // UsbDetails::place of its USB device; empty: none
  std::string rejectionReason;  // human-readable: why it is not a capture device; empty: it is one
  int openError = 0;            // errno of a failed open, or 0
};

class DeviceProvider {
 public:
  DeviceProvider() = default;
  DeviceProvider(const DeviceProvider&) = delete;
  DeviceProvider& operator=(const DeviceProvider&) = delete;
  virtual ~DeviceProvider() = default;

  // The devices that are present now, in a stable order.
  virtual std::vector<CaptureDevice> CaptureDevices() = 0;
  virtual std::vector<UsbDevice> UsbDevices() = 0;

  // For diagnosis; the camera library does not use them. USB devices in the order of UsbDevices, and all
  // video nodes in the order of their numbers. Empty if the provider has no details.
  virtual std::vector<UsbDetails> DescribeUsbDevices() { return {}; }
  virtual std::vector<VideoNodeDetails> DescribeVideoNodes() { return {}; }
};

// Converts an instance id to its form in display names: lower case, with "#" for "\".
NUVEQ_PLATFORM_EXPORT std::string ToDisplayNameForm(std::string id);

// Replaces the device provider; null restores the machine's own. A host calls it before the camera library's
// first call. Existing graphs keep their cameras. May be called from any thread.
NUVEQ_PLATFORM_EXPORT void SetDeviceProvider(std::shared_ptr<DeviceProvider> provider);
NUVEQ_PLATFORM_EXPORT std::shared_ptr<DeviceProvider> CurrentDeviceProvider();

}  // namespace devices
