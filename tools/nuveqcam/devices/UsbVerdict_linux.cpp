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
std::string TextOfAttribute(const UsbDetails& details, const std::string& verdict) {
  if (details.connectType.empty()) {
    return verdict + "the kernel says so, but not who told it";
  }
  const std::string port = ", though its port's connect type is \"" + details.connectType + "\"";
  return details.attribute == "unknown"
             ? "counts as removable: the kernel does not say whether it can be removed" + port
             : verdict + "the kernel says so" + port;
}

}  // namespace

std::string VerdictWord(VerdictSource source) {
  switch (source) {
    case VerdictSource::kFirmware:
      return "firmware";
    case VerdictSource::kHub:
      return "hub";
    case VerdictSource::kParentHub:
      return "parent";
    case VerdictSource::kNobody:
      return "nobody";
    case VerdictSource::kMissing:
      return "missing";
    case VerdictSource::kAttribute:
      return "attribute";
  }
  return {};
}

std::string VerdictText(const UsbDetails& details) {
  const std::string verdict = details.isRemovable ? "can be removed: " : "built in: ";
  switch (details.source) {
    case VerdictSource::kFirmware:
      return verdict + TextOfFirmware(details.connectType);
    case VerdictSource::kHub:
      return verdict + "hub " + details.hub +
             (details.isRemovable ? " says that it can be" : " says that it cannot be removed");
    case VerdictSource::kParentHub:
      return "counts as removable: it is fixed to hub " + details.hub +
             (details.isHubRemovable ? ", which can be removed" : ", which counts as removable");
    case VerdictSource::kNobody:
      return "counts as removable: neither the firmware nor its hub says whether it can be removed";
    case VerdictSource::kMissing:
      return "counts as removable: the kernel does not show whether it can be removed";
    case VerdictSource::kAttribute:
      return TextOfAttribute(details, verdict);
  }
  return {};
}
