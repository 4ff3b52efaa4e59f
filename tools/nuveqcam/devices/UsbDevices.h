// The PC's USB devices.
#pragma once

#include <string>
#include <vector>

#include "devices/BuiltInCamera.h"

// With what people want to know.
struct DescribedUsbDevice {
  UsbDevice device;
  std::string id;        // "USB\\VID_04F2&PID_B6BE\\0001"
  std::string name;      // UTF-8; empty: it has none
  std::string location;  // "Port_#0005.Hub_#0001", UTF-8; empty: not known; several may have the same
};

// Those that are present, in the order in which the camera library sees them.
std::vector<DescribedUsbDevice> DescribedUsbDevices();
std::vector<UsbDevice> PresentUsbDevices();

// What tells each of the devices from the others, for people: its location where no other one has the same,
// else its id.
std::vector<std::string> PlacesOf(const std::vector<DescribedUsbDevice>& devices);

// "04f2:b6be" of an instance id; empty where it names no vendor and product.
std::string ModelIn(const std::string& id);
