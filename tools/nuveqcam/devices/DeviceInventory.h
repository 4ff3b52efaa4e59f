// Every device of the PC that matters for the choice of its camera, with what speaks for it and against it.
// Texts of devices are as the devices gave them.
#pragma once

#include <optional>
#include <string>
#include <vector>

struct UsbDeviceInfo {
  std::string place;  // where people find it: "1-5.2"; no two devices have the same
  std::string name;   // empty: it has none
  std::string model;  // "04f2:b6be"; empty: not known
  std::string id;
  bool isHub = false;
  std::optional<bool> hasVideo;  // one of its functions is a camera by its class; nothing: not known
  bool isRemovable = true;
  std::string verdictFrom;  // who says so, a word for programs: see the man page
  std::string verdict;      // the same for people
  // Empty: not known, or there is none.
  std::string connectType;    // of its port, as the kernel words it
  std::string attribute;      // "fixed", "removable", "unknown", as the kernel words it
  std::string verdictHub;     // the hub that the verdict is about
  std::string firstFunction;  // the id of its first function
};

struct VideoNodeInfo {
  std::string node;
  std::string name;
  std::string usbPlace;             // of its USB device; empty: none, or not known
  bool isUsb = false;               // it is a function of a USB device, known or not
  std::string reason;               // why it is not taken, or no capture device; empty: it is taken
  std::string openError;            // empty: it can be opened, or that is not known
  std::string openAdvice;           // what to do about that; for people
  std::vector<std::string> openIn;  // programs that have it open, as far as they can be seen
};

struct DeviceInventory {
  std::vector<UsbDeviceInfo> usbDevices;  // in the order in which the camera library goes through them
  std::vector<VideoNodeInfo> captureDevices;
  std::vector<VideoNodeInfo> otherNodes;  // of cameras, but no capture devices
};

// The PC at this moment; no camera is started or stopped by it.
DeviceInventory TakeInventory();
