#include "devices/RemovabilityText.h"

namespace nuveqcam {
namespace {

std::string FirmwareText(const std::string& connectType) {
  if (connectType == "hotplug") {
    return "the firmware (ACPI) declares its port hot-pluggable";
  }
  return connectType == "hardwired" ? "the firmware (ACPI) declares its port hard-wired"
                                    : "the firmware (ACPI) declares its port unused";
}

// For an attribute of the kernel that does not follow from the firmware's description.
std::string AttributeText(const devices::UsbRemovability& removability, const std::string& prefix) {
  if (removability.connectType.empty()) {
    return prefix + "according to the kernel (source unknown)";
  }
  const std::string port = ", although its port's connect type is \"" + removability.connectType + "\"";
  return removability.attribute == "unknown"
             ? "treated as removable: the kernel does not report whether it can be removed" + port
             : prefix + "according to the kernel" + port;
}

}  // namespace

std::string SourceWord(devices::RemovabilitySource source) {
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

std::string RemovabilityText(const devices::UsbRemovability& removability) {
  const std::string prefix = removability.isRemovable ? "removable: " : "built in: ";
  switch (removability.source) {
    case devices::RemovabilitySource::kFirmware:
      return prefix + FirmwareText(removability.connectType);
    case devices::RemovabilitySource::kHub:
      return prefix + "hub " + removability.hub + " declares it " +
             (removability.isRemovable ? "removable" : "fixed");
    case devices::RemovabilitySource::kParentHub:
      return "treated as removable: it is fixed to hub " + removability.hub +
             (removability.isHubRemovable ? ", which is removable" : ", which is treated as removable");
    case devices::RemovabilitySource::kUndeclared:
      return "treated as removable: neither the firmware nor its hub declares whether it can be removed";
    case devices::RemovabilitySource::kAttributeMissing:
      return "treated as removable: the kernel has no attribute that tells whether it can be removed";
    case devices::RemovabilitySource::kAttribute:
      return AttributeText(removability, prefix);
  }
  return {};
}

}  // namespace nuveqcam
