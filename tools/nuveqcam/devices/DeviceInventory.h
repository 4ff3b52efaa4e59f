// All devices of the PC that are relevant for the selection of its camera. Texts are not sanitized.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace nuveqcam {

struct UsbDeviceInfo {
  std::string place;  // human-readable and unique: "1-5.2"
  std::string name;   // may be empty
  std::string model;  // "04f2:b6be"; empty: not known
  std::string id;
  bool isHub = false;
  std::optional<bool> hasVideo;  // one of its functions has the video class; nullopt: not known
  bool isRemovable = true;
  std::string removabilitySource;  // a word from a fixed set, see "verdictFrom" in the man page
  std::string removabilityText;    // human-readable
  // The following are empty if not known or not applicable.
  std::string connectType;      // of its port, the kernel's word
  std::string attribute;        // the kernel's "removable" attribute: "fixed", "removable", "unknown"
  std::string removabilityHub;  // the hub that removabilitySource refers to
  std::string firstFunction;    // the id of its first function
};

struct VideoNodeInfo {
  std::string node;
  std::string name;
  std::string usbPlace;             // UsbDeviceInfo::place of its USB device; empty: none, or not known
  bool isUsb = false;               // it is a function of a USB device, which may not be known
  std::string reason;               // why it is not selected or not a capture device; empty: it is selected
  std::string openError;            // empty: it can be opened, or that is not known
  std::string openAdvice;           // human-readable: what to do about openError
  std::vector<std::string> openIn;  // programs that have it open, if the user may inspect them
};

struct DeviceInventory {
  std::vector<UsbDeviceInfo> usbDevices;  // in the order in which the camera library goes through them
  std::vector<VideoNodeInfo> captureDevices;
  std::vector<VideoNodeInfo> otherNodes;  // video nodes that are not capture devices
};

// The devices that are present now. Does not start or stop a camera.
DeviceInventory GetDeviceInventory();

}  // namespace nuveqcam
