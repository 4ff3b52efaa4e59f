// Decides whether a USB device can be removed from the PC.
#pragma once

#include <filesystem>
#include <string>

namespace devices {

// Where the answer comes from.
enum class RemovabilitySource {
  kFirmware,          // ACPI's description of the port (_UPC and _PLD)
  kHub,               // the descriptor of the hub that the device is connected to
  kParentHub,         // the device is fixed to a hub that is removable or counts as removable
  kUndeclared,        // neither the firmware nor the hub declares it; counts as removable
  kAttributeMissing,  // the kernel has no "removable" attribute; counts as removable
  kAttribute,         // the kernel's attribute alone: it contradicts the port, or the port is not known
};

struct UsbRemovability {
  bool isRemovable = true;
  RemovabilitySource source = RemovabilitySource::kAttributeMissing;
  std::string attribute;    // "fixed", "removable", "unknown"; empty: missing
  std::string connectType;  // of the port: "hardwired", "hotplug", "not used", "unknown"; empty: not known
  std::string hub;          // kHub and kParentHub: the hub, e.g. "1-8" or "usb1"
  bool isHubRemovable = false;  // kParentHub: the hub's own attribute is "removable"
};

// A device is fixed if the attribute "removable" of the device and of all hubs above it is "fixed". The
// kernel derives the attribute from the firmware's description of the port or, below a hub, from the hub's
// descriptor. device is the device's folder in /sys/devices.
UsbRemovability DetermineUsbRemovability(const std::filesystem::path& device);

}  // namespace devices
