// The PC's USB devices.
#pragma once

#include <vector>

#include "BuiltIn.h"

// Those that are present, in the order in which the camera library sees them.
std::vector<UsbDevice> PresentUsbDevices();
