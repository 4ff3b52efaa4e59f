// USB devices of the machine for people: what they are, and who says whether they can be removed.
#pragma once

#include <filesystem>
#include <set>
#include <vector>

#include "devices/DeviceDetails.h"

// Of the devices that SysfsUsb lists for the same cameras, in its order.
std::vector<UsbDetails> DescribeUsbDevices(const std::filesystem::path& sysfsRoot,
                                           const std::set<std::filesystem::path>& cameras);
