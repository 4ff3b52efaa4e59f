#include "DoctorReport.h"

#include <algorithm>
#include <cstdint>

#include "Text.h"

namespace {

const SurveyedNode* TakenOf(const PcSurvey& pc) {
  const auto taken = std::find_if(pc.captureDevices.begin(), pc.captureDevices.end(),
                                  [](const SurveyedNode& device) { return device.reason.empty(); });
  return taken == pc.captureDevices.end() ? nullptr : &*taken;
}

const SurveyedUsbDevice* UsbDeviceOf(const PcSurvey& pc, const SurveyedNode& node) {
  const auto found =
      std::find_if(pc.usbDevices.begin(), pc.usbDevices.end(), [&](const SurveyedUsbDevice& device) {
        return !node.usbPlace.empty() && device.place == node.usbPlace;
      });
  return found == pc.usbDevices.end() ? nullptr : &*found;
}

// "Integrated Camera (/dev/video0)"
std::string NameAndNode(const SurveyedNode& node) {
  return Printable(node.name) + (node.name.empty() ? "(" : " (") + Printable(node.node) + ")";
}

// ", 320x240 to 1920x1080, 10 to 30 fps"
std::string WhatItOffers(const Capabilities& camera) {
  const auto [least, most] =
      std::minmax_element(camera.sizes.begin(), camera.sizes.end(), [](const Size& a, const Size& b) {
        return std::uint64_t{a.width} * a.height < std::uint64_t{b.width} * b.height;
      });
  std::string text = ", " + ToText(*least) + (*least == *most ? "" : " to " + ToText(*most));
  if (!camera.rates.empty()) {
    const auto [slowest, fastest] = std::minmax_element(camera.rates.begin(), camera.rates.end());
    text += ", " + RateText(*slowest) + (*slowest == *fastest ? "" : " to " + RateText(*fastest)) + " fps";
  }
  return text;
}

// What could make a camera count as built in that is inside the PC.
std::string AdviceOnRemovable(const std::string& camera, const SurveyedUsbDevice& usbDevice) {
  const std::string condition = "if " + camera + " is inside the PC, ";
  const std::string place = Printable(usbDevice.place);
  if (usbDevice.verdictFrom == "parent") {
    return condition + "ask the PC's maker for firmware that says that hub " +
           Printable(usbDevice.verdictHub) + " stays (ACPI _UPC and _PLD of its port)";
  }
  if (usbDevice.verdictFrom == "firmware" || usbDevice.verdictFrom == "attribute" ||
      usbDevice.verdictFrom == "windows") {
    return condition + "the firmware describes the port of USB device " + place +
           " wrongly (ACPI _UPC and _PLD): ask the PC's maker for an update";
  }
  if (usbDevice.verdictFrom == "host") {
    return condition + "correct the host program's list of devices";
  }
  return condition + "ask the PC's maker for firmware that describes the port of USB device " + place +
         " (ACPI _UPC and _PLD)";
}

std::string AdviceOn(const PcSurvey& pc, const SurveyedNode& device) {
  const std::string camera = NameAndNode(device);
  const SurveyedUsbDevice* const usbDevice = UsbDeviceOf(pc, device);
  if (usbDevice != nullptr && usbDevice->isRemovable) {
    return AdviceOnRemovable(camera, *usbDevice);
  }
  return usbDevice != nullptr
             ? camera + " cannot be used: the library takes nothing but the first function of a USB device"
             : camera + " cannot be used: the library takes nothing but USB cameras that are built in";
}

// Cameras by their class that no driver has made a capture device.
void AdviseOnDrivers(const PcSurvey& pc, const SystemTraits& system, std::vector<std::string>& advice) {
  const auto belongsTo = [](const SurveyedUsbDevice& device) {
    return [&device](const SurveyedNode& node) { return node.usbPlace == device.place; };
  };
  for (const SurveyedUsbDevice& device : pc.usbDevices) {
    if (device.hasVideo.value_or(false) && !device.isHub &&
        std::none_of(pc.captureDevices.begin(), pc.captureDevices.end(), belongsTo(device)) &&
        std::none_of(pc.otherNodes.begin(), pc.otherNodes.end(), belongsTo(device))) {
      advice.push_back(
          "USB device " + Printable(device.place) +
          " is a camera, but no driver has made a capture device of it: " + system.withoutDriver);
    }
  }
}

void AdviseOnNodes(const std::vector<SurveyedNode>& nodes, std::vector<std::string>& advice) {
  for (const SurveyedNode& node : nodes) {
    if (!node.openError.empty()) {
      advice.push_back(Printable(node.node) + " cannot be opened (" + Printable(node.openError) +
                       "): " + node.openAdvice);
    }
  }
}

std::vector<std::string> AdviceWithoutCamera(const PcSurvey& pc, const SystemTraits& system) {
  std::vector<std::string> advice;
  for (const SurveyedNode& device : pc.captureDevices) {
    advice.push_back(AdviceOn(pc, device));
  }
  AdviseOnNodes(pc.captureDevices, advice);
  AdviseOnNodes(pc.otherNodes, advice);
  AdviseOnDrivers(pc, system, advice);
  const bool sawDevices = !pc.captureDevices.empty();
  advice.push_back(std::string("switch the camera on if the PC has ") + (sawDevices ? "another" : "one") +
                   ": by a key, a switch or a shutter on the PC, or in its BIOS setup");
  advice.emplace_back(system.withoutCamera);
  return advice;
}

std::string WhyNone(const PcSurvey& pc) {
  switch (pc.captureDevices.size()) {
    case 0:
      return "no capture device was seen";
    case 1:
      return "the only capture device is not a built-in camera";
    default:
      return "none of the " + std::to_string(pc.captureDevices.size()) +
             " capture devices is a built-in camera";
  }
}

}  // namespace

DoctorReport Conclude(const PcSurvey& pc, const LibraryAnswer& answer, const SystemTraits& system) {
  const SurveyedNode* const taken = TakenOf(pc);
  if (answer.camera && !answer.camera->sizes.empty()) {
    return {ExitCode::kOk,
            "The camera that is offered: " +
                (taken != nullptr ? NameAndNode(*taken) : "camera " + Printable(answer.camera->id)) +
                WhatItOffers(*answer.camera),
            {}};
  }
  const std::string none = "No camera is offered: ";
  const std::string builtIn = (taken != nullptr ? NameAndNode(*taken) : "the built-in camera");
  if (answer.camera) {
    return {ExitCode::kCannotOpen,
            none + builtIn + " is built in, but offers no picture size",
            {"see with -v what the library makes of its formats"}};
  }
  if (!answer.failure.empty()) {
    return {ExitCode::kCannotOpen,
            none + builtIn + " is built in, but it cannot be read",
            {Printable(answer.failure)}};
  }
  if (taken != nullptr) {
    return {ExitCode::kNoCamera,
            none + builtIn + " looks built in, but the library did not take it",
            {"it may have come or gone just now: run this again, with -v for the library's log"}};
  }
  return {ExitCode::kNoCamera, none + WhyNone(pc), AdviceWithoutCamera(pc, system)};
}
