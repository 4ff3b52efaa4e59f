#include "devices/UsbVerdict.h"

namespace {

std::string TextOfFirmware(const std::string& connectType) {
  if (connectType == "hotplug") {
    return "the firmware (ACPI) says that its port is one for plugging in";
  }
  return connectType == "hardwired" ? "the firmware (ACPI) says that its port is hard-wired"
                                    : "the firmware (ACPI) says that nothing can be plugged into its port";
}

// What the kernel shows does not follow from what the firmware says.
std::string TextOfAttribute(const devices::UsbRemovability& removability, const std::string& verdict) {
  if (removability.connectType.empty()) {
    return verdict + "the kernel says so, but not who told it";
  }
  const std::string port = ", though its port's connect type is \"" + removability.connectType + "\"";
  return removability.attribute == "unknown"
             ? "counts as removable: the kernel does not say whether it can be removed" + port
             : verdict + "the kernel says so" + port;
}

}  // namespace

std::string VerdictWord(devices::RemovabilitySource source) {
  switch (source) {
    case devices::RemovabilitySource::kFirmware:
      return "firmware";
    case devices::RemovabilitySource::kHub:
      return "hub";
    case devices::RemovabilitySource::kParentHub:
      return "parent";
    case devices::RemovabilitySource::kUndeclared:
      return "nobody";
    case devices::RemovabilitySource::kAttributeMissing:
      return "missing";
    case devices::RemovabilitySource::kAttribute:
      return "attribute";
  }
  return {};
}

std::string VerdictText(const devices::UsbRemovability& removability) {
  const std::string verdict = removability.isRemovable ? "can be removed: " : "built in: ";
  switch (removability.source) {
    case devices::RemovabilitySource::kFirmware:
      return verdict + TextOfFirmware(removability.connectType);
    case devices::RemovabilitySource::kHub:
      return verdict + "hub " + removability.hub +
             (removability.isRemovable ? " says that it can be" : " says that it cannot be removed");
    case devices::RemovabilitySource::kParentHub:
      return "counts as removable: it is fixed to hub " + removability.hub +
             (removability.isHubRemovable ? ", which can be removed" : ", which counts as removable");
    case devices::RemovabilitySource::kUndeclared:
      return "counts as removable: neither the firmware nor its hub says whether it can be removed";
    case devices::RemovabilitySource::kAttributeMissing:
      return "counts as removable: the kernel does not show whether it can be removed";
    case devices::RemovabilitySource::kAttribute:
      return TextOfAttribute(removability, verdict);
  }
  return {};
}
