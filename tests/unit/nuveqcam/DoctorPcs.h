// PCs for the doctor's tests.
#pragma once

#include <string>
#include <vector>

#include "commands/DoctorReport.h"

namespace doctor_pcs {

inline constexpr SystemTraits kDoctorSystem{
    .withoutDriver = "load it", .withoutStatus = "look elsewhere", .withoutCamera = "buy one"};

inline UsbDeviceInfo UsbDeviceAt(const std::string& place, bool isRemovable, const std::string& from) {
  UsbDeviceInfo device;
  device.place = place;
  device.name = "Camera " + place;
  device.model = "04f2:b6be";
  device.id = "ID " + place;
  device.hasVideo = true;
  device.isRemovable = isRemovable;
  device.verdictFrom = from;
  device.verdict = "said by " + from;
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
  DeviceInventory pc;
  pc.usbDevices = {UsbDeviceAt("1-5", false, "firmware"), UsbDeviceAt("1-6.10", true, "hub")};
  pc.usbDevices[1].verdictHub = "1-6";
  pc.captureDevices = {NodeAt("/dev/video0", "1-5", ""),
                       NodeAt("/dev/video10", "1-6.10", "it is plugged in")};
  pc.otherNodes = {NodeAt("/dev/video1", "1-5", "it carries metadata")};
  return pc;
}

inline DeviceInventory OneCamera(const UsbDeviceInfo& usbDevice) {
  DeviceInventory pc;
  pc.usbDevices = {usbDevice};
  pc.captureDevices = {NodeAt("/dev/video0", usbDevice.place, "of no matter here")};
  return pc;
}

inline const Capabilities kOffered{"0", {{320, 240}, {1280, 720}, {640, 480}}, {30000, 7500}};

inline std::vector<std::string> AdviceFor(const DeviceInventory& pc) {
  return Conclude(pc, {}, kDoctorSystem).advice;
}

}  // namespace doctor_pcs
