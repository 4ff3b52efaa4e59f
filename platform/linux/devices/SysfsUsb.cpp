#include "devices/SysfsUsb.h"

#include <algorithm>
#include <cctype>
#include <map>

#include "devices/Sysfs.h"

namespace {

namespace fs = std::filesystem;

std::string UpperCase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
  return text;
}

bool IsRootHub(const fs::path& device) { return device.filename().string().starts_with("usb"); }
// "1-5:1.0" is an interface of the device "1-5".
bool IsInterface(const fs::path& entry) { return entry.filename().string().find(':') != std::string::npos; }

fs::path RootHubOf(fs::path device) {
  while (device.has_relative_path() && !IsRootHub(device)) {
    device = device.parent_path();
  }
  return device;
}

// The controller's name, with the position of the bus among its buses where that is not the first: a
// controller has one for each speed class, and their ports bear the same numbers.
std::string ControllerName(const fs::path& rootHub) {
  const fs::path controller = rootHub.parent_path();
  std::vector<long> buses;
  for (const fs::path& entry : SysfsEntries(controller)) {
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

// "0000:00:14.0-1.2": the controller, and the ports on the way to the device.
std::string PlaceOf(const fs::path& device) {
  const std::string name = device.filename().string();  // "1-1.2": bus and ports
  const fs::path rootHub = RootHubOf(device);
  const auto dash = name.find('-');
  if (!rootHub.has_relative_path() || dash == std::string::npos) {
    return {};
  }
  return ControllerName(rootHub) + name.substr(dash);
}

// "USB\VID_04F2&PID_B6BE"
std::string ModelOf(const fs::path& device) {
  const std::string vendor = ReadSysfsLine(device / "idVendor");
  const std::string product = ReadSysfsLine(device / "idProduct");
  return vendor.empty() || product.empty() ? std::string() : R"(USB\VID_)" + vendor + "&PID_" + product;
}

std::string MakeId(const std::string& model, const std::string& function, const std::string& place) {
  return model.empty() || place.empty() ? std::string()
                                        : UpperCase(model + function + "\\" + place + "&0000");
}

}  // namespace

std::string SysfsUsb::DeviceId(const fs::path& device) const {
  return MakeId(ModelOf(device), "", PlaceOf(device));
}

std::string SysfsUsb::InterfaceId(const fs::path& interface) const {
  const std::string number = ReadSysfsLine(interface / "bInterfaceNumber");
  const fs::path device = interface.parent_path();
  return number.empty() ? std::string() : MakeId(ModelOf(device), "&MI_" + number, PlaceOf(device));
}

std::string SysfsUsb::FirstChildId(const fs::path& device, const std::set<fs::path>& cameras) const {
  // Interface numbers are two hexadecimal digits.
  std::map<std::string, fs::path> interfaces;
  std::map<std::string, fs::path> videoInterfaces;
  for (const fs::path& entry : SysfsEntries(device)) {
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

Attachment SysfsUsb::AttachmentOf(const fs::path& device) const {
  const std::string own = ReadSysfsLine(device / "removable");
  if (own != "fixed") {
    return own == "removable" ? Attachment::kRemovable
           : own == "unknown" ? Attachment::kUnknown
                              : Attachment::kMissing;
  }
  for (fs::path hub = device.parent_path(); hub.has_relative_path() && !IsRootHub(hub);
       hub = hub.parent_path()) {
    if (ReadSysfsLine(hub / "removable") != "fixed") {
      return Attachment::kBelowRemovableHub;
    }
  }
  return Attachment::kFixed;
}

std::vector<fs::path> SysfsUsb::Folders() const {
  std::map<std::string, fs::path> byPlace;
  for (const fs::path& entry : SysfsEntries(m_root / "bus" / "usb" / "devices")) {
    const fs::path device = SysfsPlaceOf(entry);
    if (!device.empty() && !IsInterface(device) && !IsRootHub(device)) {
      byPlace.emplace(PlaceOf(device), device);
    }
  }
  std::vector<fs::path> folders;
  std::transform(byPlace.begin(), byPlace.end(), std::back_inserter(folders),
                 [](const auto& entry) { return entry.second; });
  return folders;
}

std::vector<UsbDevice> SysfsUsb::Devices(const std::set<fs::path>& cameras) const {
  std::vector<UsbDevice> devices;
  for (const fs::path& folder : Folders()) {
    UsbDevice device;
    device.id = DeviceId(folder);
    device.isRemovable = AttachmentOf(folder) != Attachment::kFixed;
    device.firstChildId = FirstChildId(folder, cameras);
    if (!device.id.empty()) {
      devices.push_back(std::move(device));
    }
  }
  return devices;
}
