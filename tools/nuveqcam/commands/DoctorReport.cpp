#include "commands/DoctorReport.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "cli/Text.h"

namespace {

const VideoNodeInfo* TakenOf(const DeviceInventory& pc) {
  const auto taken = std::find_if(pc.captureDevices.begin(), pc.captureDevices.end(),
                                  [](const VideoNodeInfo& device) { return device.reason.empty(); });
  return taken == pc.captureDevices.end() ? nullptr : &*taken;
}

const UsbDeviceInfo* UsbDeviceOf(const DeviceInventory& pc, const VideoNodeInfo& node) {
  const auto found = std::find_if(
      pc.usbDevices.begin(), pc.usbDevices.end(),
      [&](const UsbDeviceInfo& device) { return !node.usbPlace.empty() && device.place == node.usbPlace; });
  return found == pc.usbDevices.end() ? nullptr : &*found;
}

// "Integrated Camera (/dev/video0)"
std::string NameAndNode(const VideoNodeInfo& node) {
  return SanitizeForTerminal(node.name) + (node.name.empty() ? "(" : " (") + SanitizeForTerminal(node.node) +
         ")";
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
std::string AdviceOnRemovable(const std::string& camera, const UsbDeviceInfo& usbDevice,
                              const SystemTraits& system) {
  const std::string condition = "if " + camera + " is inside the PC, ";
  const std::string place = SanitizeForTerminal(usbDevice.place);
  if (usbDevice.verdictFrom == "parent") {
    return condition + "ask the PC's maker for firmware that says that hub " +
           SanitizeForTerminal(usbDevice.verdictHub) + " stays (ACPI _UPC and _PLD of its port)";
  }
  if (usbDevice.verdictFrom == "missing") {
    return condition + system.withoutStatus;
  }
  const bool isContradicted = usbDevice.verdictFrom == "attribute" && !usbDevice.connectType.empty();
  if (isContradicted && usbDevice.connectType != "hotplug") {
    return condition + "the kernel does not go by what the firmware says of the port of USB device " + place +
           ": use a newer kernel";
  }
  if (usbDevice.verdictFrom == "firmware" || usbDevice.verdictFrom == "windows" || isContradicted) {
    return condition + "the firmware describes the port of USB device " + place +
           " wrongly (ACPI _UPC and _PLD): ask the PC's maker for an update";
  }
  if (usbDevice.verdictFrom == "host") {
    return condition + "correct the host program's list of devices";
  }
  return condition + "ask the PC's maker for firmware that describes the port of USB device " + place +
         " (ACPI _UPC and _PLD)";
}

std::string AdviceOnUsb(const DeviceInventory& pc, const VideoNodeInfo& device, const SystemTraits& system) {
  const std::string camera = NameAndNode(device);
  const UsbDeviceInfo* const usbDevice = UsbDeviceOf(pc, device);
  return usbDevice != nullptr && usbDevice->isRemovable
             ? AdviceOnRemovable(camera, *usbDevice, system)
             : camera + " cannot be used: " + SanitizeForTerminal(device.reason);
}

// A PC has dozens of capture devices where its cameras are not on USB: one line for all.
void AdviseOnOthers(const DeviceInventory& pc, std::vector<std::string>& advice) {
  const auto isOther = [](const VideoNodeInfo& device) { return !device.isUsb; };
  const auto count = std::count_if(pc.captureDevices.begin(), pc.captureDevices.end(), isOther);
  const std::string rule = "the library takes nothing but USB cameras that are built in";
  if (count == 1) {
    const auto other = std::find_if(pc.captureDevices.begin(), pc.captureDevices.end(), isOther);
    advice.push_back(NameAndNode(*other) + " cannot be used: " + rule);
  } else if (count > 1) {
    advice.push_back(
        std::to_string(count) +
        " capture devices are no USB devices (cameras on MIPI, virtual cameras, test devices): " + rule);
  }
}

// USB devices that are cameras by their class and have no capture device: no driver made nodes for them, or
// the nodes deliver nothing that the library can use.
void AdviseOnDevicesWithoutCapture(const DeviceInventory& pc, const SystemTraits& system,
                                   std::vector<std::string>& advice) {
  for (const UsbDeviceInfo& device : pc.usbDevices) {
    const auto belongsToIt = [&device](const VideoNodeInfo& node) { return node.usbPlace == device.place; };
    if (!device.hasVideo.value_or(false) || device.isHub ||
        std::any_of(pc.captureDevices.begin(), pc.captureDevices.end(), belongsToIt)) {
      continue;
    }
    const auto node = std::find_if(pc.otherNodes.begin(), pc.otherNodes.end(), belongsToIt);
    if (node == pc.otherNodes.end()) {
      advice.push_back(
          "USB device " + SanitizeForTerminal(device.place) +
          " is a camera, but no driver has made a capture device of it: " + system.withoutDriver);
    } else if (node->openError.empty()) {
      advice.push_back(NameAndNode(*node) + " cannot be used: " + SanitizeForTerminal(node->reason));
    }
  }
}

// " cannot be opened (Permission denied): add your user to the group video and log in again"
std::string AdviceOnOpening(const VideoNodeInfo& node) {
  return " cannot be opened (" + SanitizeForTerminal(node.openError) + "): " + node.openAdvice;
}

// One line for all nodes that fail alike.
void AdviseOnNodes(const DeviceInventory& pc, std::vector<std::string>& advice) {
  std::vector<std::pair<std::string, std::string>> lines;  // what is wrong, and the nodes
  for (const auto* const nodes : {&pc.captureDevices, &pc.otherNodes}) {
    for (const VideoNodeInfo& node : *nodes) {
      if (node.openError.empty()) {
        continue;
      }
      const std::string text = AdviceOnOpening(node);
      const auto same =
          std::find_if(lines.begin(), lines.end(), [&](const auto& line) { return line.first == text; });
      if (same != lines.end()) {
        same->second += ", " + SanitizeForTerminal(node.node);
      } else {
        lines.emplace_back(text, SanitizeForTerminal(node.node));
      }
    }
  }
  for (const auto& [text, names] : lines) {
    advice.push_back(names + text);
  }
}

std::vector<std::string> AdviceWithoutCamera(const DeviceInventory& pc, const SystemTraits& system) {
  std::vector<std::string> advice;
  for (const VideoNodeInfo& device : pc.captureDevices) {
    if (device.isUsb) {
      advice.push_back(AdviceOnUsb(pc, device, system));
    }
  }
  AdviseOnOthers(pc, advice);
  AdviseOnNodes(pc, advice);
  AdviseOnDevicesWithoutCapture(pc, system, advice);
  const bool sawDevices = !pc.captureDevices.empty();
  advice.push_back(std::string("switch the camera on if the PC has ") + (sawDevices ? "another" : "one") +
                   ": by a key, a switch or a shutter on the PC, or in its BIOS setup");
  advice.emplace_back(system.withoutCamera);
  return advice;
}

std::string WhyNone(const DeviceInventory& pc) {
  switch (pc.captureDevices.size()) {
    case 0:
      return "no capture device was seen";
    case 1:
      return "the only capture device is not a USB camera that is built in";
    default:
      return "none of the " + std::to_string(pc.captureDevices.size()) +
             " capture devices is a USB camera that is built in";
  }
}

constexpr const char* kNone = "No camera is offered: ";
constexpr const char* kHasGone = "it has gone while this looked: run this again";

DoctorReport OfOffered(const VideoNodeInfo* taken, const Capabilities& camera) {
  const std::string name =
      taken != nullptr ? NameAndNode(*taken) : "camera " + SanitizeForTerminal(camera.id);
  DoctorReport report{ExitCode::kOk, "The camera that is offered: " + name + WhatItOffers(camera), {}, true};
  if (taken == nullptr) {
    report.advice.emplace_back(kHasGone);
  }
  return report;
}

// The library took a camera that does not work.
DoctorReport OfUseless(const VideoNodeInfo* taken, const LibraryAnswer& answer) {
  const std::string camera =
      taken != nullptr ? NameAndNode(*taken) + " is built in" : "the library took a camera";
  DoctorReport report{ExitCode::kCannotOpen, kNone + camera + ", but it ", {}, true};
  if (answer.camera) {
    report.conclusion += "offers no picture size";
    report.advice.emplace_back("see with -v what the library makes of its formats");
  } else {
    report.conclusion += "cannot be read";
    report.advice.push_back(SanitizeForTerminal(answer.failure));
  }
  if (taken == nullptr) {
    report.advice.emplace_back(kHasGone);
  } else if (!taken->openError.empty() && answer.failure.find(taken->openAdvice) == std::string::npos) {
    report.advice.push_back(SanitizeForTerminal(taken->node) + AdviceOnOpening(*taken));
  }
  return report;
}

}  // namespace

bool Agree(const DeviceInventory& pc, const LibraryAnswer& answer) {
  return (TakenOf(pc) != nullptr) == answer.TookOne();
}

DoctorReport Conclude(const DeviceInventory& pc, const LibraryAnswer& answer, const SystemTraits& system) {
  const VideoNodeInfo* const taken = TakenOf(pc);
  if (answer.camera && !answer.camera->sizes.empty()) {
    return OfOffered(taken, *answer.camera);
  }
  if (answer.TookOne()) {
    return OfUseless(taken, answer);
  }
  if (taken != nullptr) {
    return {ExitCode::kNoCamera,
            kNone + NameAndNode(*taken) + " looks built in, but the library did not take it",
            {"it may have come or gone just now: run this again, with -v for the library's log"},
            false};
  }
  return {ExitCode::kNoCamera, kNone + WhyNone(pc), AdviceWithoutCamera(pc, system), false};
}
