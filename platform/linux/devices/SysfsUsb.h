// USB devices and their interfaces as sysfs shows them.
#pragma once

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "devices/DeviceProvider.h"

// Whether a device can be taken off the PC. The kernel knows from the firmware (ACPI's _UPC and _PLD) or,
// below a hub, from the hub's own description.
enum class Attachment {
  kFixed,
  kRemovable,
  kUnknown,            // nobody says; counts as removable
  kMissing,            // the kernel does not show what is known; counts as removable
  kBelowRemovableHub,  // fixed to something that can be taken off itself, or may be
};

class SysfsUsb {
 public:
  explicit SysfsUsb(std::filesystem::path sysfsRoot) : m_root(std::move(sysfsRoot)) {}

  // Every device but the root hubs, in the order of their places. Devices that go while they are read are
  // left out. cameras are the folders of the interfaces that deliver video, which come first among a device's
  // children.
  std::vector<UsbDevice> Devices(const std::set<std::filesystem::path>& cameras) const;
  // Their folders, in the same order.
  std::vector<std::filesystem::path> Folders() const;

  // Of the folders of devices and interfaces, as the tree /sys/devices has them.
  Attachment AttachmentOf(const std::filesystem::path& device) const;
  // Instance ids name a place on the PC and what is there:
  // USB\VID_04F2&PID_B6BE&MI_00\<controller>-<ports>&0000. They have no bus number, which changes from boot
  // to boot. Empty for what is no USB device or interface.
  std::string DeviceId(const std::filesystem::path& device) const;
  std::string InterfaceId(const std::filesystem::path& interface) const;
  // Of the lowest interface among the cameras; of the lowest interface if none is a camera.
  std::string FirstChildId(const std::filesystem::path& device,
                           const std::set<std::filesystem::path>& cameras) const;

 private:
  std::filesystem::path m_root;
};
