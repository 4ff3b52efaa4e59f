// What people want to know of devices beside what the lists of a DeviceTree hold.
#pragma once

#include <string>

// Who says that a USB device can be removed, or that it cannot.
enum class VerdictSource {
  kFirmware,   // of the port that it is on (ACPI's _UPC and _PLD)
  kHub,        // the hub that it hangs on, in its own description
  kParentHub,  // it is fixed to a hub that can be removed, or may be
  kNobody,     // neither the firmware nor its hub; counts as removable
  kMissing,    // the kernel does not show what is known; counts as removable
  kAttribute,  // the kernel, against what the firmware says of the port, or without a word of who told it
};

struct UsbDetails {
  std::string place;  // bus and ports: "1-5.2"
  std::string name;   // its own, UTF-8; empty: it has none
  std::string model;  // vendor and product: "04f2:b6be"
  bool isHub = false;
  bool hasVideo = false;  // one of its functions is a camera by its class
  bool isRemovable = true;
  std::string id;            // as in UsbDevice
  std::string firstChildId;  // as in UsbDevice
  VerdictSource source = VerdictSource::kMissing;
  std::string attribute;    // "fixed", "removable", "unknown"; empty: missing
  std::string connectType;  // of its port: "hardwired", "hotplug", "not used", "unknown"; empty: not known
  std::string hub;          // that which speaks (kHub) or can be removed (kParentHub): "1-8", "usb1"
  bool isHubRemovable = false;  // kParentHub: it can be removed; else nobody says that it cannot
};

struct VideoNodeDetails {
  std::string node;  // "/dev/video0"
  std::string name;
  std::string usbPlace;       // of the USB device that it belongs to; empty: none
  std::string whyNotCapture;  // for people; empty: it is a capture device
  int openError = 0;          // the error number with which it cannot be opened, or 0
};
