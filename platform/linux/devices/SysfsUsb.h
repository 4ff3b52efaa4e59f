// USB devices and their interfaces in sysfs.
#pragma once

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "devices/DeviceProvider.h"

namespace devices {

// Interface folders, and folders of other devices, that have a usable capture node.
using CameraFolders = std::set<std::filesystem::path>;

class SysfsUsb {
 public:
  explicit SysfsUsb(std::filesystem::path sysfsRoot) : m_root(std::move(sysfsRoot)) {}

  // Lists all devices except root hubs, ordered by controller and ports. Devices that are unplugged while
  // they are read are left out. Interfaces in cameras come first among a device's children.
  std::vector<UsbDevice> Devices(const CameraFolders& cameras) const;
  // The same devices in the same order, described for diagnosis.
  std::vector<UsbDetails> Describe(const CameraFolders& cameras) const;

  // Instance ids: USB\VID_04F2&PID_B6BE&MI_00\<controller>-<ports>&0000. They do not contain the bus number,
  // which changes between boots. Empty if the folder is not a USB device or interface.
  std::string DeviceId(const std::filesystem::path& device) const;
  std::string InterfaceId(const std::filesystem::path& interface) const;
  // The id of the lowest interface among the cameras; of the lowest interface if the device has no camera.
  std::string FirstChildId(const std::filesystem::path& device, const CameraFolders& cameras) const;

 private:
  std::vector<std::filesystem::path> Folders() const;

  std::filesystem::path m_root;
};

}  // namespace devices
