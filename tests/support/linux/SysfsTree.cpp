#include "support/linux/SysfsTree.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <stdexcept>

namespace linux_support {
namespace {

namespace fs = std::filesystem;

void WriteAttribute(const fs::path& file, const std::string& value) { std::ofstream(file) << value << '\n'; }

// The kernel's links are relative.
void AddLink(const fs::path& link, const fs::path& target) {
  fs::create_directories(link.parent_path());
  fs::create_symlink(target.lexically_relative(link.parent_path()), link);
}

void RemoveDanglingLinks(const fs::path& folder) {
  std::vector<fs::path> dangling;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
    if (!fs::exists(entry.path())) {
      dangling.push_back(entry.path());
    }
  }
  for (const fs::path& link : dangling) {
    fs::remove(link);
  }
}

std::string VideoName(int number) { return std::string("video").append(std::to_string(number)); }

std::string TwoHexDigits(int number) {
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), "%02x", static_cast<unsigned>(number));
  return text.data();
}

// The parent of "1-2.4" is "1-2", that of "1-5" the root hub "usb1".
std::string ParentOf(const std::string& name) {
  if (const std::size_t dot = name.rfind('.'); dot != std::string::npos) {
    return name.substr(0, dot);
  }
  return std::string("usb").append(name.substr(0, name.find('-')));
}

}  // namespace

SysfsTree::SysfsTree() {
  for (const fs::path& folder : {Devices(), UsbLinks(), VideoLinks(), DevRoot()}) {
    fs::create_directories(folder);
  }
}

fs::path SysfsTree::UsbFolder(const std::string& name) const { return fs::canonical(UsbLinks() / name); }

void SysfsTree::AddRootHub(const std::string& bus, const fs::path& controller) {
  const fs::path folder = Devices() / controller / bus;
  fs::create_directories(folder);
  WriteAttribute(Devices() / controller / "uevent", "DRIVER=xhci_hcd");
  WriteAttribute(folder / "idVendor", "1d6b");
  WriteAttribute(folder / "idProduct", "0002");
  // The kernel's value for root hubs.
  WriteAttribute(folder / "removable", "unknown");
  WriteAttribute(folder / "product", "xHCI Host Controller");
  WriteAttribute(folder / "bDeviceClass", "09");
  WriteAttribute(folder / "devpath", "0");
  WriteAttribute(folder / "busnum", bus.substr(3));
  WriteAttribute(folder / "uevent", "DEVTYPE=usb_device");
  AddLink(UsbLinks() / bus, folder);
  AddLink(folder / "subsystem", SysfsRoot() / "bus/usb");
  AddInterface(folder, bus.substr(3) + "-0", 0);
}

void SysfsTree::AddInterface(const fs::path& device, const std::string& deviceName, int number) {
  std::string name = deviceName;
  name.append(":1.").append(std::to_string(number));
  const fs::path folder = device / name;
  fs::create_directories(folder);
  WriteAttribute(folder / "bInterfaceNumber", TwoHexDigits(number));
  WriteAttribute(folder / "bInterfaceClass", "0e");
  WriteAttribute(folder / "uevent", "DEVTYPE=usb_interface");
  AddLink(UsbLinks() / name, folder);
  AddLink(folder / "subsystem", SysfsRoot() / "bus/usb");
}

// Ports are in the folder of their hub's interface: "1-0:1.0/usb1-port5", "1-2:1.0/1-2-port4".
void SysfsTree::AddPort(const fs::path& device, const std::string& connectType) {
  const fs::path hub = device.parent_path();
  const std::string hubName = hub.filename().string();
  const bool isRootHub = hubName.starts_with("usb");
  std::string interface = isRootHub ? hubName.substr(3).append("-0") : hubName;
  const std::string name = device.filename().string();
  std::string port = hubName;
  port.append("-port").append(name.substr(name.find_last_of("-.") + 1));
  const fs::path folder = hub / interface.append(":1.0") / port;
  fs::create_directories(folder);
  WriteAttribute(folder / "connect_type", connectType);
  AddLink(folder / "device", device);
  AddLink(device / "port", folder);
}

void SysfsTree::AddUsb(const UsbNode& node) {
  const std::string parent = ParentOf(node.name);
  if (parent.starts_with("usb") && !fs::exists(UsbLinks() / parent)) {
    AddRootHub(parent, node.controller);
  }
  const fs::path folder = UsbFolder(parent) / node.name;
  fs::create_directories(folder);
  WriteAttribute(folder / "idVendor", node.vendor);
  WriteAttribute(folder / "idProduct", node.product);
  WriteAttribute(folder / "product", "USB device");
  WriteAttribute(folder / "bDeviceClass", "ef");
  WriteAttribute(folder / "devpath", node.name.substr(node.name.find('-') + 1));
  WriteAttribute(folder / "busnum", node.name.substr(0, node.name.find('-')));
  WriteAttribute(folder / "uevent", "DEVTYPE=usb_device");
  if (node.removable) {
    WriteAttribute(folder / "removable", *node.removable);
  }
  if (node.connectType) {
    AddPort(folder, *node.connectType);
  }
  AddLink(UsbLinks() / node.name, folder);
  AddLink(folder / "subsystem", SysfsRoot() / "bus/usb");
  for (const int number : node.interfaces) {
    AddInterface(folder, node.name, number);
  }
}

void SysfsTree::AddVideoOfUsb(int number, const std::string& interface, const std::string& name, int index) {
  AddVideoOf(number, UsbFolder(interface).lexically_relative(Devices()), name, index);
}

void SysfsTree::AddVideoOf(int number, const fs::path& device, const std::string& name, int index) {
  const fs::path parent = Devices() / device;
  const fs::path folder = parent / "video4linux" / VideoName(number);
  AddVideoNode(folder, number, name, index);
  AddLink(folder / "device", parent);
}

void SysfsTree::AddVirtualVideo(int number, const std::string& name) {
  AddVideoNode(Devices() / "virtual/video4linux" / VideoName(number), number, name, 0);
}

void SysfsTree::AddVideoNode(const fs::path& folder, int number, const std::string& name, int index) {
  fs::create_directories(folder);
  WriteAttribute(folder / "name", name);
  WriteAttribute(folder / "index", std::to_string(index));
  WriteAttribute(folder / "dev", std::string("81:").append(std::to_string(number)));
  AddLink(folder / "subsystem", SysfsRoot() / "class/video4linux");
  AddLink(VideoLinks() / VideoName(number), folder);
  std::ofstream(DevRoot() / VideoName(number));
}

void SysfsTree::AddDanglingUsb(const std::string& name) {
  AddLink(UsbLinks() / name, Devices() / "pci0000:00/0000:00:14.0/usb1" / name);
}

void SysfsTree::AddDanglingVideo(int number) {
  AddLink(VideoLinks() / VideoName(number), Devices() / "gone/video4linux" / VideoName(number));
}

void SysfsTree::RemoveUsb(const std::string& name) {
  // The port belongs to the hub and remains.
  fs::remove(UsbFolder(name) / "port" / "device");
  fs::remove_all(UsbFolder(name));
  RemoveDanglingLinks(UsbLinks());
  RemoveDanglingLinks(VideoLinks());
  for (const fs::directory_entry& entry : fs::directory_iterator(DevRoot())) {
    if (!fs::exists(VideoLinks() / entry.path().filename())) {
      fs::remove(entry.path());
    }
  }
}

void SysfsTree::RemoveVideo(int number) {
  fs::remove_all(fs::canonical(VideoLinks() / VideoName(number)));
  fs::remove(VideoLinks() / VideoName(number));
  fs::remove(DevRoot() / VideoName(number));
}

void SysfsTree::SetUsbAttribute(const std::string& name, const std::string& attribute,
                                const std::optional<std::string>& value) {
  const fs::path file = UsbFolder(name) / attribute;
  if (value) {
    WriteAttribute(file, *value);
  } else {
    fs::remove(file);
  }
}

}  // namespace linux_support
