#include "devices/UsbRemovability.h"

#include "devices/Sysfs.h"

namespace devices {

namespace {

namespace fs = std::filesystem;

// Finds the nearest hub above that is not fixed. Root hubs do not count. Ends at the latest at a folder
// without the attribute, which is not a hub.
bool FindRemovableParentHub(const fs::path& device, UsbRemovability& result) {
  for (fs::path hub = device.parent_path(); !IsRootHub(hub); hub = hub.parent_path()) {
    const std::string attribute = ReadSysfsLine(hub / "removable");
    if (attribute != "fixed") {
      result.hub = hub.filename().string();
      result.isHubRemovable = attribute == "removable";
      return true;
    }
  }
  return false;
}

// The source of an attribute that is "fixed" or "removable". The kernel uses the port's connect type if the
// firmware declares one, and the hub's descriptor otherwise.
RemovabilitySource SourceOfAttribute(const UsbRemovability& result) {
  if (result.connectType.empty()) {
    return RemovabilitySource::kAttribute;
  }
  if (result.connectType == "unknown") {
    return RemovabilitySource::kHub;
  }
  const bool isHotplugPort = result.connectType == "hotplug";
  return isHotplugPort == result.isRemovable ? RemovabilitySource::kFirmware : RemovabilitySource::kAttribute;
}

}  // namespace

UsbRemovability DetermineUsbRemovability(const fs::path& device) {
  UsbRemovability result;
  result.attribute = ReadSysfsLine(device / "removable");
  result.connectType = ReadSysfsLine(device / "port" / "connect_type");
  if (result.attribute == "fixed" && FindRemovableParentHub(device, result)) {
    result.source = RemovabilitySource::kParentHub;
  } else if (result.attribute == "fixed" || result.attribute == "removable") {
    result.isRemovable = result.attribute == "removable";
    result.source = SourceOfAttribute(result);
    if (result.source == RemovabilitySource::kHub) {
      result.hub = device.parent_path().filename().string();
    }
  } else if (result.attribute == "unknown") {
    const bool isUndeclared = result.connectType.empty() || result.connectType == "unknown";
    result.source = isUndeclared ? RemovabilitySource::kUndeclared : RemovabilitySource::kAttribute;
  }
  return result;
}

}  // namespace devices
