// Windows: repeats the camera library's selection of the built-in camera, to explain it.
#pragma once

#include <string>
#include <vector>

namespace nuveqcam {

// A USB device. Its functions are its child devices.
struct UsbDevice {
  bool isRemovable = true;
  std::string firstChildId;   // "USB\VID_04F2&PID_B6BE&MI_00\6&1A2B3C&0&0000"; empty: none
  bool isStatusKnown = true;  // false: treated as removable
};

// Human-readable: why the camera library does not select each of the capture devices; empty for the selected
// one. The library goes through the USB devices in order and selects the first capture device whose display
// name contains the first child of a device that is not removable.
std::vector<std::string> ExclusionReasons(const std::vector<std::string>& displayNames,
                                          const std::vector<UsbDevice>& usbDevices);

// Whether the capture device is the first function of the USB device.
bool IsFirstFunction(const UsbDevice& usbDevice, const std::string& displayName);

// Human-readable: whether a USB device is removable, and the source of that information.
std::string RemovabilityText(bool isStatusKnown, bool isRemovable);

// Whether the capture device with the display name, or at the device path, is a USB device's function.
bool IsUsb(const std::string& displayName);

// The identifying part of a display name: "usb#vid_04f2#1" of
// "@device:pnp:\\?\usb#vid_04f2#1#{65e8773d-...}\global".
std::string DevicePathIn(const std::string& displayName);

}  // namespace nuveqcam
