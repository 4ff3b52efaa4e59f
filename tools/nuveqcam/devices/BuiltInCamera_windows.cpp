#include "devices/BuiltInCamera.h"

#include <algorithm>
#include <cctype>

namespace {

// As it stands in display names: lower case, with "#" where the id has "\".
std::string DisplayForm(std::string id) {
  for (char& c : id) {
    c = c == '\\' ? '#' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return id;
}

// The USB device whose capture device is taken; null: there is none.
const UsbDevice* ChosenOf(const std::vector<std::string>& displayNames,
                          const std::vector<UsbDevice>& usbDevices) {
  const auto chosen = std::find_if(usbDevices.begin(), usbDevices.end(), [&](const UsbDevice& usbDevice) {
    return !usbDevice.isRemovable &&
           std::any_of(displayNames.begin(), displayNames.end(),
                       [&](const std::string& name) { return IsFirstFunction(usbDevice, name); });
  });
  return chosen == usbDevices.end() ? nullptr : &*chosen;
}

std::string ReasonFor(const std::string& displayName, const std::vector<UsbDevice>& usbDevices) {
  const auto owner = std::find_if(usbDevices.begin(), usbDevices.end(), [&](const UsbDevice& usbDevice) {
    return IsFirstFunction(usbDevice, displayName);
  });
  if (owner == usbDevices.end()) {
    return IsUsb(displayName) ? "it is not the first function of its USB device" : "it is not a USB device";
  }
  if (!owner->isRemovable) {
    return "another built-in camera comes first";
  }
  return owner->isStatusKnown ? "it is plugged in: its USB device can be removed"
                              : "Windows does not tell whether its USB device can be removed";
}

}  // namespace

std::vector<std::string> WhyNotBuiltIn(const std::vector<std::string>& displayNames,
                                       const std::vector<UsbDevice>& usbDevices) {
  const UsbDevice* const chosen = ChosenOf(displayNames, usbDevices);
  bool isTaken = false;
  std::vector<std::string> reasons;
  for (const std::string& name : displayNames) {
    const bool isOfChosen = chosen != nullptr && IsFirstFunction(*chosen, name);
    if (!isOfChosen) {
      reasons.push_back(ReasonFor(name, usbDevices));
    } else {
      reasons.emplace_back(isTaken ? "it is another node of the camera that is taken" : "");
      isTaken = true;
    }
  }
  return reasons;
}

bool IsUsb(const std::string& displayName) { return PlaceIn(displayName).starts_with("usb#"); }

bool IsFirstFunction(const UsbDevice& usbDevice, const std::string& displayName) {
  return !usbDevice.firstChildId.empty() &&
         displayName.find(DisplayForm(usbDevice.firstChildId)) != std::string::npos;
}

std::string VerdictText(bool isStatusKnown, bool isRemovable) {
  if (!isStatusKnown) {
    return "counts as removable: Windows does not tell its device status";
  }
  return isRemovable ? "can be removed: Windows says (device status) that it can be"
                     : "built in: Windows says (device status) that it cannot be removed";
}

std::string PlaceIn(const std::string& displayName) {
  // Before the path stands how the device is known: "@device:pnp:\\?\", "@device:sw:{class}\".
  std::string place = displayName;
  for (const char* const mark : {R"(\\?\)", R"(}\)"}) {
    if (const std::size_t begin = displayName.find(mark); begin != std::string::npos) {
      place = displayName.substr(begin + std::string(mark).size());
      break;
    }
  }
  // After it, as what it is opened.
  if (const std::size_t end = place.find("#{"); end != std::string::npos) {
    place.erase(end);
  }
  return place;
}
