// The kernel's view of a PC's devices as real files in a temporary folder, laid out as a real kernel does:
// device folders hold those of what hangs below them, buses and classes hold links to them.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

// A USB device that is no root hub.
struct UsbNode {
  std::string name;  // bus, then the ports on the way: "1-5", "1-2.4"
  std::string vendor = "04f2";
  std::string product = "b6be";
  std::optional<std::string> removable = "fixed";  // nothing: the kernel has no such attribute
  std::vector<int> interfaces = {0, 1};            // numbers of configuration 1, created in this order
  std::string controller = "pci0000:00/0000:00:14.0";
  // What the firmware says of its port: "hardwired", "hotplug", "not used", "unknown"; nothing: the kernel
  // has no such file.
  std::optional<std::string> connectType = std::nullopt;
};

class SysfsTree {
 public:
  SysfsTree();
  SysfsTree(const SysfsTree&) = delete;
  SysfsTree& operator=(const SysfsTree&) = delete;
  ~SysfsTree();

  std::filesystem::path SysfsRoot() const { return m_root / "sys"; }
  std::filesystem::path DevRoot() const { return m_root / "dev"; }

  // The hub that it hangs on comes first; root hubs come by themselves.
  void AddUsb(const UsbNode& node);
  // A node of a driver bound to a USB interface ("1-5:1.0").
  void AddVideoOfUsb(int number, const std::string& interface, const std::string& name, int index);
  // A node of a driver with a device of another kind, named by its folder ("platform/vivid.0").
  void AddVideoOf(int number, const std::filesystem::path& device, const std::string& name, int index);
  // A node of no device: a loopback camera.
  void AddVirtualVideo(int number, const std::string& name);
  // A link of a bus or a class that leads nowhere: its device has just gone.
  void AddDanglingUsb(const std::string& name);
  void AddDanglingVideo(int number);

  // With everything below it, as on unplugging.
  void RemoveUsb(const std::string& name);
  void RemoveVideo(int number);
  // One attribute of a USB device or interface; nothing removes it.
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

  std::filesystem::path m_root;
};
