// A sysfs tree and /dev nodes in a temporary folder. The layout is the kernel's: nested device folders, and
// links to them from buses and classes.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "support/ScopedTempFolder.h"

namespace linux_support {

// A USB device other than a root hub.
struct UsbNode {
  std::string name;  // bus and port path: "1-5", "1-2.4"
  std::string vendor = "04f2";
  std::string product = "b6be";
  std::optional<std::string> removable = "fixed";  // nullopt: no such attribute
  std::vector<int> interfaces = {0, 1};            // of configuration 1, created in this order
  std::string controller = "pci0000:00/0000:00:14.0";
  // connect_type of the port: "hardwired", "hotplug", "not used", "unknown"; nullopt: no such attribute.
  std::optional<std::string> connectType = std::nullopt;
};

class SysfsTree {
 public:
  SysfsTree();
  SysfsTree(const SysfsTree&) = delete;
  SysfsTree& operator=(const SysfsTree&) = delete;

  std::filesystem::path SysfsRoot() const { return m_root / "sys"; }
  std::filesystem::path DevRoot() const { return m_root / "dev"; }

  // Adds a USB device. Its parent hub must exist; root hubs are added automatically.
  void AddUsb(const UsbNode& node);
  // Adds a video node of a USB interface ("1-5:1.0").
  void AddVideoOfUsb(int number, const std::string& interface, const std::string& name, int index);
  // Adds a video node of another device, given by its folder ("platform/vivid.0").
  void AddVideoOf(int number, const std::filesystem::path& device, const std::string& name, int index);
  // Adds a video node without a device, as a loopback camera has.
  void AddVirtualVideo(int number, const std::string& name);
  // Adds a dangling link, as of a device that was just removed.
  void AddDanglingUsb(const std::string& name);
  void AddDanglingVideo(int number);

  // Removes a USB device and everything below it.
  void RemoveUsb(const std::string& name);
  void RemoveVideo(int number);
  // Sets an attribute of a USB device or interface; nullopt removes it.
  void SetUsbAttribute(const std::string& name, const std::string& attribute,
                       const std::optional<std::string>& value);

 private:
  std::filesystem::path Devices() const { return SysfsRoot() / "devices"; }
  std::filesystem::path UsbLinks() const { return SysfsRoot() / "bus/usb/devices"; }
  std::filesystem::path VideoLinks() const { return SysfsRoot() / "class/video4linux"; }
  std::filesystem::path UsbFolder(const std::string& name) const;
  void AddRootHub(const std::string& bus, const std::filesystem::path& controller);
  void AddVideoNode(const std::filesystem::path& folder, int number, const std::string& name, int index);
  static void AddPort(const std::filesystem::path& device, const std::string& connectType);
  void AddInterface(const std::filesystem::path& device, const std::string& deviceName, int number);

  ScopedTempFolder m_root;
};

}  // namespace linux_support
