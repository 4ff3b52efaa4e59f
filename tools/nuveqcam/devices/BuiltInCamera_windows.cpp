#include "devices/BuiltInCamera.h"

#include <algorithm>
#include <cctype>

namespace nuveqcam {
namespace {

// Converts an instance id to its form in display names: lower case, with "#" for "\".
std::string ToDisplayNameForm(std::string id) {
  for (char& c : id) {
    c = c == '\\' ? '#' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return id;
}

// The USB device whose capture device is selected; null if there is none.
const UsbDevice* FindSelectedDevice(const std::vector<std::string>& displayNames,
                                    const std::vector<UsbDevice>& usbDevices) {
  const auto selected = std::find_if(usbDevices.begin(), usbDevices.end(), [&](const UsbDevice& usbDevice) {
    return !usbDevice.isRemovable &&
           std::any_of(displayNames.begin(), displayNames.end(),
                       [&](const std::string& name) { return IsFirstFunction(usbDevice, name); });
  });
  return selected == usbDevices.end() ? nullptr : &*selected;
}

std::string ExclusionReasonOf(const std::string& displayName, const std::vector<UsbDevice>& usbDevices) {
  const auto owner = std::find_if(usbDevices.begin(), usbDevices.end(), [&](const UsbDevice& usbDevice) {
    return IsFirstFunction(usbDevice, displayName);
  });
  if (owner == usbDevices.end()) {
    return IsUsb(displayName) ? "it is not the first function of its USB device" : "it is not a USB device";
  }
  if (!owner->isRemovable) {
    return "another built-in camera comes first";
  }
  return owner->isStatusKnown ? "its USB device is removable"
                              : "Windows does not report whether its USB device can be removed";
}

}  // namespace

std::vector<std::string> ExclusionReasons(const std::vector<std::string>& displayNames,
                                          const std::vector<UsbDevice>& usbDevices) {
  const UsbDevice* const selected = FindSelectedDevice(displayNames, usbDevices);
  bool hasSelection = false;
  std::vector<std::string> reasons;
  for (const std::string& name : displayNames) {
    const bool isOfSelected = selected != nullptr && IsFirstFunction(*selected, name);
    if (!isOfSelected) {
      reasons.push_back(ExclusionReasonOf(name, usbDevices));
    } else {
      reasons.emplace_back(hasSelection ? "it is another node of the selected camera" : "");
      hasSelection = true;
    }
  }
  return reasons;
}

bool IsUsb(const std::string& displayName) { return DevicePathIn(displayName).starts_with("usb#"); }

bool IsFirstFunction(const UsbDevice& usbDevice, const std::string& displayName) {
  return !usbDevice.firstChildId.empty() &&
         displayName.find(ToDisplayNameForm(usbDevice.firstChildId)) != std::string::npos;
}

std::string RemovabilityText(bool isStatusKnown, bool isRemovable) {
  if (!isStatusKnown) {
    return "treated as removable: Windows does not report its device status";
  }
  return isRemovable ? "removable: according to its device status in Windows"
                     : "built in: according to its device status in Windows";
}

std::string DevicePathIn(const std::string& displayName) {
  // Remove the prefix: "@device:pnp:\\?\" or "@device:sw:{class}\".
  std::string path = displayName;
  for (const char* const mark : {R"(\\?\)", R"(}\)"}) {
    if (const std::size_t begin = displayName.find(mark); begin != std::string::npos) {
      path = displayName.substr(begin + std::string(mark).size());
      break;
    }
  }
  // Remove the suffix, the interface class.
  if (const std::size_t end = path.find("#{"); end != std::string::npos) {
    path.erase(end);
  }
  return path;
}

}  // namespace nuveqcam
