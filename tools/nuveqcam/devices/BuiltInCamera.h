// Which capture device the camera library takes for the PC's own, and why not the others.
#pragma once

#include <string>
#include <vector>

// A USB device, which shows its functions as its children.
struct UsbDevice {
  bool isRemovable = true;
  std::string firstChildId;   // "USB\VID_04F2&PID_B6BE&MI_00\6&1A2B3C&0&0000"; empty: none
  bool isStatusKnown = true;  // else it counts as removable
};

// Why the camera library does not take each of the capture devices, for people; empty for the one that it
// takes. It goes through the USB devices in their order and takes the first capture device with the first
// child of one that cannot be removed in its display name.
std::vector<std::string> WhyNotBuiltIn(const std::vector<std::string>& displayNames,
                                       const std::vector<UsbDevice>& usbDevices);

// Whether the capture device of that name is the first function of the USB device.
bool IsFirstFunction(const UsbDevice& usbDevice, const std::string& displayName);

// Who says that a USB device can be removed, or that it cannot, for people. One whose status is not known
// counts as removable.
std::string VerdictText(bool isStatusKnown, bool isRemovable);

// Whether the capture device of that name, or of that place, is a function of a USB device.
bool IsUsb(const std::string& displayName);

// What people need of a display name: "@device:pnp:\\?\usb#vid_04f2#1#{65e8773d-...}\global" is at
// "usb#vid_04f2#1".
std::string PlaceIn(const std::string& displayName);
