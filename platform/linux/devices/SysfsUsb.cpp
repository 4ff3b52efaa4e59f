#include "devices/SysfsUsb.h"

#include <algorithm>
#include <cctype>
#include <map>

#include "devices/Sysfs.h"

namespace devices {

namespace {

namespace fs = std::filesystem;

std::string UpperCase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return text;
}

// "1-5:1.0" is an interface of the device "1-5".
bool IsInterface(const fs::path& entry) { return entry.filename().string().find(':') != std::string::npos; }

fs::path RootHubOf(fs::path device) {
  while (device.has_relative_path() && !IsRootHub(device)) {
    device = device.parent_path();
  }
  return device;
}

// The controller's name, followed by the position of the bus among its buses unless it is the first. A
// controller has one bus for each speed class, with the same port numbers.
std::string ControllerName(const fs::path& rootHub) {
  const fs::path controller = rootHub.parent_path();
  std::vector<long> buses;
  for (const fs::path& entry : ListSysfsEntries(controller)) {
    if (IsRootHub(entry)) {
      buses.push_back(std::strtol(entry.filename().c_str() + 3, nullptr, 10));
    }
  }
  std::sort(buses.begin(), buses.end());
  const long bus = std::strtol(rootHub.filename().c_str() + 3, nullptr, 10);
  const auto position = std::find(buses.begin(), buses.end(), bus) - buses.begin();
  const std::string name = controller.filename().string();
  return position == 0 ? name : name + "+" + std::to_string(position);
}

// "0000:00:14.0-1.2": the controller and the ports on the path to the device.
std::string PortPath(const fs::path& device) {
  const std::string name = device.filename().string();  // "1-1.2": bus and ports
  const fs::path rootHub = RootHubOf(device);
  const auto dash = name.find('-');
  if (!rootHub.has_relative_path() || dash == std::string::npos) {
    return {};
  }
  return ControllerName(rootHub) + name.substr(dash);
}

// "USB\VID_04F2&PID_B6BE"
std::string HardwareId(const fs::path& device) {
  const std::string vendor = ReadSysfsLine(device / "idVendor");
  const std::string product = ReadSysfsLine(device / "idProduct");
  return vendor.empty() || product.empty() ? std::string() : R"(USB\VID_)" + vendor + "&PID_" + product;
}

std::string MakeId(const std::string& hardwareId, const std::string& function, const std::string& portPath) {
  return hardwareId.empty() || portPath.empty()
             ? std::string()
             : UpperCase(hardwareId + function + "\\" + portPath + "&0000");
}

constexpr const char* kVideoClass = "0e";

bool HasVideoInterface(const fs::path& device) {
  const std::vector<fs::path> entries = ListSysfsEntries(device);
  return std::any_of(entries.begin(), entries.end(), [](const fs::path& entry) {
    return IsInterface(entry) && ReadSysfsLine(entry / "bInterfaceClass") == kVideoClass;
  });
}

}  // namespace

std::string SysfsUsb::DeviceId(const fs::path& device) const {
  return MakeId(HardwareId(device), "", PortPath(device));
}

std::string SysfsUsb::InterfaceId(const fs::path& interface) const {
  const std::string number = ReadSysfsLine(interface / "bInterfaceNumber");
  const fs::path device = interface.parent_path();
  return number.empty() ? std::string() : MakeId(HardwareId(device), "&MI_" + number, PortPath(device));
}

std::string SysfsUsb::FirstChildId(const fs::path& device, const CameraFolders& cameras) const {
  // Interface numbers are two hexadecimal digits.
  std::map<std::string, fs::path> interfaces;
  std::map<std::string, fs::path> videoInterfaces;
  for (const fs::path& entry : ListSysfsEntries(device)) {
    if (!IsInterface(entry)) {
      continue;
    }
    if (const std::string number = ReadSysfsLine(entry / "bInterfaceNumber"); !number.empty()) {
      (cameras.contains(entry) ? videoInterfaces : interfaces).emplace(number, entry);
    }
  }
  const auto& candidates = videoInterfaces.empty() ? interfaces : videoInterfaces;
  return candidates.empty() ? std::string() : InterfaceId(candidates.begin()->second);
}

std::vector<fs::path> SysfsUsb::Folders() const {
  std::map<std::string, fs::path> byPortPath;
  for (const fs::path& entry : ListSysfsEntries(m_root / "bus" / "usb" / "devices")) {
    const fs::path device = ResolveSysfsLink(entry);
    if (!device.empty() && !IsInterface(device) && !IsRootHub(device)) {
      byPortPath.emplace(PortPath(device), device);
    }
  }
  std::vector<fs::path> folders;
  std::transform(byPortPath.begin(), byPortPath.end(), std::back_inserter(folders),
                 [](const auto& entry) { return entry.second; });
  return folders;
}

std::vector<UsbDevice> SysfsUsb::Devices(const CameraFolders& cameras) const {
  std::vector<UsbDevice> devices;
  for (const fs::path& folder : Folders()) {
    UsbDevice device;
    device.id = DeviceId(folder);
    device.isRemovable = DetermineUsbRemovability(folder).isRemovable;
    device.firstChildId = FirstChildId(folder, cameras);
    if (!device.id.empty()) {
      devices.push_back(std::move(device));
    }
  }
  return devices;
}

std::vector<UsbDetails> SysfsUsb::Describe(const CameraFolders& cameras) const {
  constexpr const char* kHubClass = "09";
  std::vector<UsbDetails> described;
  for (const fs::path& folder : Folders()) {
    UsbDetails details;
    details.place = folder.filename().string();
    details.name = ReadSysfsLine(folder / "product");
    details.model = ReadSysfsLine(folder / "idVendor") + ":" + ReadSysfsLine(folder / "idProduct");
    details.isHub = ReadSysfsLine(folder / "bDeviceClass") == kHubClass;
    details.hasVideo = HasVideoInterface(folder);
    details.id = DeviceId(folder);
    details.firstChildId = FirstChildId(folder, cameras);
    details.removability = DetermineUsbRemovability(folder);
    if (!details.id.empty()) {
      described.push_back(std::move(details));
    }
  }
  return described;
}

}  // namespace devices
