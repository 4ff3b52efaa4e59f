#include "commands/DoctorReport.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "camera/Camera.h"
#include "cli/Text.h"

namespace nuveqcam {
namespace {

const UsbDeviceInfo* FindUsbDevice(const DeviceInventory& inventory, const VideoNodeInfo& node) {
  const auto found = std::find_if(
      inventory.usbDevices.begin(), inventory.usbDevices.end(),
      [&](const UsbDeviceInfo& device) { return !node.usbPlace.empty() && device.place == node.usbPlace; });
  return found == inventory.usbDevices.end() ? nullptr : &*found;
}

// "Integrated Camera (/dev/video0)"
std::string NameAndNode(const VideoNodeInfo& node) {
  return SanitizeForTerminal(node.name) + (node.name.empty() ? "(" : " (") + SanitizeForTerminal(node.node) +
         ")";
}

// ", 320x240 to 1920x1080, 10 to 30 fps"
std::string CapabilitiesText(const Capabilities& camera) {
  const auto [smallest, largest] =
      std::minmax_element(camera.sizes.begin(), camera.sizes.end(), [](const Size& a, const Size& b) {
        return std::uint64_t{a.width} * a.height < std::uint64_t{b.width} * b.height;
      });
  std::string text = ", " + ToText(*smallest) + (*smallest == *largest ? "" : " to " + ToText(*largest));
  if (!camera.rates.empty()) {
    const auto [slowest, fastest] = std::minmax_element(camera.rates.begin(), camera.rates.end());
    text += ", " + RateText(*slowest) + (*slowest == *fastest ? "" : " to " + RateText(*fastest)) + " fps";
  }
  return text;
}

// What to do about a built-in camera that is treated as removable.
std::string AdviceOnRemovable(const std::string& camera, const UsbDeviceInfo& usbDevice,
                              const SystemTraits& system) {
  const std::string condition = "if " + camera + " is inside the PC, ";
  const std::string place = SanitizeForTerminal(usbDevice.place);
  if (usbDevice.removabilitySource == "parent") {
    return condition + "ask the PC's manufacturer for firmware that declares hub " +
           SanitizeForTerminal(usbDevice.removabilityHub) + " fixed (ACPI _UPC and _PLD of its port)";
  }
  if (usbDevice.removabilitySource == "missing") {
    return condition + system.noStatusAdvice;
  }
  const bool isContradicted = usbDevice.removabilitySource == "attribute" && !usbDevice.connectType.empty();
  if (isContradicted && usbDevice.connectType != "hotplug") {
    return condition + "the kernel ignores the firmware's description of the port of USB device " + place +
           ": use a newer kernel";
  }
  if (usbDevice.removabilitySource == "firmware" || usbDevice.removabilitySource == "windows" ||
      isContradicted) {
    return condition + "the firmware describes the port of USB device " + place +
           " incorrectly (ACPI _UPC and _PLD): ask the PC's manufacturer for an update";
  }
  if (usbDevice.removabilitySource == "host") {
    return condition + "correct the device list of the host program";
  }
  return condition + "ask the PC's manufacturer for firmware that describes the port of USB device " + place +
         " (ACPI _UPC and _PLD)";
}

std::string AdviceOnUsb(const DeviceInventory& inventory, const VideoNodeInfo& device,
                        const SystemTraits& system) {
  const std::string camera = NameAndNode(device);
  const UsbDeviceInfo* const usbDevice = FindUsbDevice(inventory, device);
  return usbDevice != nullptr && usbDevice->isRemovable
             ? AdviceOnRemovable(camera, *usbDevice, system)
             : camera + " cannot be used: " + SanitizeForTerminal(device.reason);
}

// One line for all devices: a PC whose cameras are not on USB can have dozens of capture devices.
void AdviseOnNonUsbDevices(const DeviceInventory& inventory, std::vector<std::string>& advice) {
  const auto isNonUsb = [](const VideoNodeInfo& device) { return !device.isUsb; };
  const auto count =
      std::count_if(inventory.captureDevices.begin(), inventory.captureDevices.end(), isNonUsb);
  const std::string rule = "the library supports only built-in USB cameras";
  if (count == 1) {
    const auto other =
        std::find_if(inventory.captureDevices.begin(), inventory.captureDevices.end(), isNonUsb);
    advice.push_back(NameAndNode(*other) + " cannot be used: " + rule);
  } else if (count > 1) {
    advice.push_back(
        std::to_string(count) +
        " capture devices are not USB devices (MIPI cameras, virtual cameras, test devices): " + rule);
  }
}

// USB devices of the video class without a capture device: there is no driver, or their nodes have no format
// that the library can use.
void AdviseOnDevicesWithoutCapture(const DeviceInventory& inventory, const SystemTraits& system,
                                   std::vector<std::string>& advice) {
  for (const UsbDeviceInfo& device : inventory.usbDevices) {
    const auto belongsToDevice = [&device](const VideoNodeInfo& node) {
      return node.usbPlace == device.place;
    };
    if (!device.hasVideo.value_or(false) || device.isHub ||
        std::any_of(inventory.captureDevices.begin(), inventory.captureDevices.end(), belongsToDevice)) {
      continue;
    }
    const auto node = std::find_if(inventory.otherNodes.begin(), inventory.otherNodes.end(), belongsToDevice);
    if (node == inventory.otherNodes.end()) {
      advice.push_back(
          "USB device " + SanitizeForTerminal(device.place) +
          " is a camera, but no driver has created a capture device for it: " + system.noDriverAdvice);
    } else if (node->openError.empty()) {
      advice.push_back(NameAndNode(*node) + " cannot be used: " + SanitizeForTerminal(node->reason));
    }
  }
}

// " cannot be opened (Permission denied): add your user to the group video and log in again"
std::string AdviceOnOpening(const VideoNodeInfo& node) {
  return " cannot be opened (" + SanitizeForTerminal(node.openError) + "): " + node.openAdvice;
}

// One line for all nodes with the same error.
void AdviseOnOpenErrors(const DeviceInventory& inventory, std::vector<std::string>& advice) {
  std::vector<std::pair<std::string, std::string>> lines;  // error and nodes
  for (const auto* const nodes : {&inventory.captureDevices, &inventory.otherNodes}) {
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

std::vector<std::string> AdviceWithoutCamera(const DeviceInventory& inventory, const SystemTraits& system) {
  std::vector<std::string> advice;
  for (const VideoNodeInfo& device : inventory.captureDevices) {
    if (device.isUsb) {
      advice.push_back(AdviceOnUsb(inventory, device, system));
    }
  }
  AdviseOnNonUsbDevices(inventory, advice);
  AdviseOnOpenErrors(inventory, advice);
  AdviseOnDevicesWithoutCapture(inventory, system, advice);
  const bool hasDevices = !inventory.captureDevices.empty();
  advice.push_back(std::string("if the PC has ") + (hasDevices ? "another" : "a") +
                   " built-in camera, enable it with its key, switch or shutter, or in the BIOS setup");
  advice.emplace_back(system.noCameraAdvice);
  return advice;
}

std::string NoCameraReason(const DeviceInventory& inventory) {
  switch (inventory.captureDevices.size()) {
    case 0:
      return "no capture devices were found";
    case 1:
      return "the only capture device is not a built-in USB camera";
    default:
      return "none of the " + std::to_string(inventory.captureDevices.size()) +
             " capture devices is a built-in USB camera";
  }
}

constexpr const char* kNotOffered = "No camera is offered: ";
constexpr const char* kDeviceRemoved = "the device was removed during this check: run it again";

DoctorReport ReportOffered(const VideoNodeInfo* selected, const Capabilities& camera) {
  const std::string name =
      selected != nullptr ? NameAndNode(*selected) : "camera " + SanitizeForTerminal(camera.id);
  DoctorReport report{ExitCode::kOk, "Offered camera: " + name + CapabilitiesText(camera), {}, true};
  report.advice.emplace_back(selected == nullptr ? kDeviceRemoved
                                                 : "'nuveqcam probe' measures what each size delivers");
  return report;
}

// The library selected a camera that cannot be used.
DoctorReport ReportUnusable(const VideoNodeInfo* selected, const LibraryResult& result) {
  const std::string camera =
      selected != nullptr ? NameAndNode(*selected) + " is built in" : "the library selected a camera";
  DoctorReport report{ExitCode::kCannotOpen, kNotOffered + camera + ", but it ", {}, true};
  if (result.camera) {
    report.conclusion += "has no picture sizes";
    report.advice.emplace_back("use -v to see the formats in the library's log");
  } else {
    report.conclusion += "cannot be read";
    report.advice.push_back(SanitizeForTerminal(result.failure));
  }
  if (selected == nullptr) {
    report.advice.emplace_back(kDeviceRemoved);
  } else if (!selected->openError.empty() && result.failure.find(selected->openAdvice) == std::string::npos) {
    report.advice.push_back(SanitizeForTerminal(selected->node) + AdviceOnOpening(*selected));
  }
  return report;
}

}  // namespace

LibraryResult QueryLibrary(Camera& camera) {
  LibraryResult result;
  try {
    result.camera = camera.Query();
  } catch (const Failure& failure) {
    // The inventory has the reasons if no camera was selected.
    result.failure = failure.Code() == ExitCode::kNoCamera ? "" : failure.what();
  }
  return result;
}

DeviceInventory GetMatchingInventory(Camera& camera, LibraryResult& result) {
  DeviceInventory inventory = GetDeviceInventory();
  if (!AreConsistent(inventory, result)) {
    result = QueryLibrary(camera);
    inventory = GetDeviceInventory();
  }
  return inventory;
}

const VideoNodeInfo* FindSelected(const DeviceInventory& inventory) {
  const auto selected = std::find_if(inventory.captureDevices.begin(), inventory.captureDevices.end(),
                                     [](const VideoNodeInfo& device) { return device.reason.empty(); });
  return selected == inventory.captureDevices.end() ? nullptr : &*selected;
}

std::string SelectionReason(const VideoNodeInfo& selected) {
  return "the first camera of " +
         (selected.usbPlace.empty() ? "a USB device"
                                    : "USB device " + SanitizeForTerminal(selected.usbPlace)) +
         ", which is built in";
}

bool AreConsistent(const DeviceInventory& inventory, const LibraryResult& result) {
  return (FindSelected(inventory) != nullptr) == result.HasSelected();
}

DoctorReport MakeDoctorReport(const DeviceInventory& inventory, const LibraryResult& result,
                              const SystemTraits& system) {
  const VideoNodeInfo* const selected = FindSelected(inventory);
  if (result.camera && !result.camera->sizes.empty()) {
    return ReportOffered(selected, *result.camera);
  }
  if (result.HasSelected()) {
    return ReportUnusable(selected, result);
  }
  if (selected != nullptr) {
    return {ExitCode::kNoCamera,
            kNotOffered + NameAndNode(*selected) + " looks built in, but the library did not select it",
            {"it may have been added or removed just now: run this again, with -v for the library's log"},
            false};
  }
  return {ExitCode::kNoCamera, kNotOffered + NoCameraReason(inventory),
          AdviceWithoutCamera(inventory, system), false};
}

}  // namespace nuveqcam
