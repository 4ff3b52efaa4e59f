// Windows: the PC's USB devices.
#pragma once

#include <string>
#include <vector>

#include "devices/BuiltInCamera.h"

namespace nuveqcam {

struct UsbDeviceDetails {
  UsbDevice device;
  std::string id;        // "USB\\VID_04F2&PID_B6BE\\0001"
  std::string name;      // UTF-8; may be empty
  std::string location;  // "Port_#0002.Hub_#0001", UTF-8; not unique; empty: not known
};

// The devices that are present, in the order in which the camera library goes through them.
std::vector<UsbDeviceDetails> DescribeUsbDevices();
std::vector<UsbDevice> ListUsbDevices();

// A human-readable, unique place for each of the devices: its location, or its id if the location is not
// unique.
std::vector<std::string> PlacesOf(const std::vector<UsbDeviceDetails>& devices);

// The vendor and product in an instance id, "04f2:b6be"; empty if it has none.
std::string ModelIn(const std::string& id);

}  // namespace nuveqcam
