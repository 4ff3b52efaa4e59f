#include "devices/UsbDescription.h"

#include <algorithm>

#include "devices/Sysfs.h"
#include "devices/SysfsUsb.h"

namespace {

namespace fs = std::filesystem;

bool HasVideo(const fs::path& device) {
  constexpr const char* kVideoClass = "0e";
  const std::vector<fs::path> entries = SysfsEntries(device);
  return std::any_of(entries.begin(), entries.end(), [](const fs::path& entry) {
    return entry.filename().string().find(':') != std::string::npos &&
           ReadSysfsLine(entry / "bInterfaceClass") == kVideoClass;
  });
}

// The kernel goes by the firmware's word of the port, and without one by the hub's description of itself.
// Where it does not show the firmware's word, who spoke is open.
VerdictSource SourceOf(const std::string& connectType, bool isRemovable) {
  if (connectType.empty()) {
    return VerdictSource::kAttribute;
  }
  if (connectType == "unknown") {
    return VerdictSource::kHub;
  }
  const bool isForPlugging = connectType == "hotplug";
  return isForPlugging == isRemovable ? VerdictSource::kFirmware : VerdictSource::kAttribute;
}

// The nearest hub above that is not fixed itself.
void BlameHub(const fs::path& device, UsbDetails& details) {
  fs::path hub = device.parent_path();
  std::string attribute = ReadSysfsLine(hub / "removable");
  // The root hub says nothing of itself, so that this ends there if the tree changes meanwhile.
  while (attribute == "fixed") {
    hub = hub.parent_path();
    attribute = ReadSysfsLine(hub / "removable");
  }
  details.hub = hub.filename().string();
  details.isHubRemovable = attribute == "removable";
}

void FindSource(const fs::path& device, Attachment attachment, UsbDetails& details) {
  details.isRemovable = attachment != Attachment::kFixed;
  switch (attachment) {
    case Attachment::kFixed:
    case Attachment::kRemovable:
      details.source = SourceOf(details.connectType, details.isRemovable);
      details.hub = details.source == VerdictSource::kHub ? device.parent_path().filename().string() : "";
      break;
    case Attachment::kUnknown:
      details.source = details.connectType.empty() || details.connectType == "unknown"
                           ? VerdictSource::kNobody
                           : VerdictSource::kAttribute;
      break;
    case Attachment::kMissing:
      details.source = VerdictSource::kMissing;
      break;
    case Attachment::kBelowRemovableHub:
      details.source = VerdictSource::kParentHub;
      BlameHub(device, details);
      break;
  }
}

UsbDetails Describe(const SysfsUsb& usb, const fs::path& device, const std::set<fs::path>& cameras) {
  constexpr const char* kHubClass = "09";
  UsbDetails details;
  details.place = device.filename().string();
  details.name = ReadSysfsLine(device / "product");
  details.model = ReadSysfsLine(device / "idVendor") + ":" + ReadSysfsLine(device / "idProduct");
  details.isHub = ReadSysfsLine(device / "bDeviceClass") == kHubClass;
  details.hasVideo = HasVideo(device);
  details.id = usb.DeviceId(device);
  details.firstChildId = usb.FirstChildId(device, cameras);
  details.attribute = ReadSysfsLine(device / "removable");
  details.connectType = ReadSysfsLine(device / "port" / "connect_type");
  FindSource(device, usb.AttachmentOf(device), details);
  return details;
}

}  // namespace

std::vector<UsbDetails> DescribeUsbDevices(const fs::path& sysfsRoot, const std::set<fs::path>& cameras) {
  const SysfsUsb usb(sysfsRoot);
  std::vector<UsbDetails> described;
  for (const fs::path& folder : usb.Folders()) {
    UsbDetails details = Describe(usb, folder, cameras);
    if (!details.id.empty()) {
      described.push_back(std::move(details));
    }
  }
  return described;
}
