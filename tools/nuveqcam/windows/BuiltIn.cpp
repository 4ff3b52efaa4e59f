#include "BuiltIn.h"

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

// The place in displayNames of the one that is taken; their number when none is.
std::size_t TakenOf(const std::vector<std::string>& displayNames, const std::vector<UsbDevice>& usbDevices) {
  for (const UsbDevice& usbDevice : usbDevices) {
    const auto match = std::find_if(displayNames.begin(), displayNames.end(), [&](const std::string& name) {
      return !name.empty() && IsFirstFunction(usbDevice, name);
    });
    if (!usbDevice.isRemovable && match != displayNames.end()) {
      return static_cast<std::size_t>(match - displayNames.begin());
    }
  }
  return displayNames.size();
}

std::string ReasonFor(const std::string& displayName, const std::vector<UsbDevice>& usbDevices) {
  const auto isChildOf = [&](bool isRemovable) {
    return std::any_of(usbDevices.begin(), usbDevices.end(), [&](const UsbDevice& usbDevice) {
      return usbDevice.isRemovable == isRemovable && IsFirstFunction(usbDevice, displayName);
    });
  };
  if (isChildOf(false)) {
    return "another built-in camera comes first";
  }
  if (isChildOf(true)) {
    return "it is plugged in: its USB device can be removed";
  }
  return PlaceIn(displayName).starts_with("usb#") ? "it is not the first function of its USB device"
                                                  : "it is not a USB device";
}

}  // namespace

std::vector<std::string> WhyNotBuiltIn(const std::vector<std::string>& displayNames,
                                       const std::vector<UsbDevice>& usbDevices) {
  const std::size_t taken = TakenOf(displayNames, usbDevices);
  std::vector<std::string> reasons;
  for (std::size_t i = 0; i < displayNames.size(); ++i) {
    reasons.push_back(i == taken ? "" : ReasonFor(displayNames[i], usbDevices));
  }
  return reasons;
}

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
