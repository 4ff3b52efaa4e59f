// Device inventories for the tests of doctor.
#pragma once

#include <string>
#include <vector>

#include "commands/DoctorReport.h"

namespace nuveqcam {

inline constexpr SystemTraits kTestSystem{.noDriverAdvice = "load a driver",
                                          .noStatusAdvice = "use another system",
                                          .noCameraAdvice = "connect one"};

inline UsbDeviceInfo UsbDeviceAt(const std::string& place, bool isRemovable, const std::string& source) {
  UsbDeviceInfo device;
  device.place = place;
  device.name = "Camera " + place;
  device.model = "04f2:b6be";
  device.id = "ID " + place;
  device.hasVideo = true;
  device.isRemovable = isRemovable;
  device.removabilitySource = source;
  device.removabilityText = "according to " + source;
  return device;
}

inline VideoNodeInfo NodeAt(const std::string& node, const std::string& usbPlace, const std::string& reason) {
  VideoNodeInfo device;
  device.node = node;
  device.name = "Camera";
  device.usbPlace = usbPlace;
  device.isUsb = !usbPlace.empty();
  device.reason = reason;
  return device;
}

inline DeviceInventory Laptop() {
  DeviceInventory inventory;
  inventory.usbDevices = {UsbDeviceAt("1-5", false, "firmware"), UsbDeviceAt("1-6.10", true, "hub")};
  inventory.usbDevices[1].removabilityHub = "1-6";
  inventory.captureDevices = {NodeAt("/dev/video0", "1-5", ""),
                              NodeAt("/dev/video10", "1-6.10", "it is plugged in")};
  inventory.otherNodes = {NodeAt("/dev/video1", "1-5", "it carries metadata")};
  return inventory;
}

inline DeviceInventory OneCamera(const UsbDeviceInfo& usbDevice) {
  DeviceInventory inventory;
  inventory.usbDevices = {usbDevice};
  inventory.captureDevices = {NodeAt("/dev/video0", usbDevice.place, "any reason")};
  return inventory;
}

inline const Capabilities kOffered{"0", {{320, 240}, {1280, 720}, {640, 480}}, {30000, 7500}};

inline std::vector<std::string> AdviceFor(const DeviceInventory& inventory) {
  return MakeDoctorReport(inventory, {}, kTestSystem).advice;
}

}  // namespace nuveqcam
