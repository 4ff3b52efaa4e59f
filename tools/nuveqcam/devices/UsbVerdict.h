// Why a USB device counts as removable or as built in, in words.
#pragma once

#include <string>

#include "devices/DeviceProvider.h"

// "firmware": a word that programs can rely on.
std::string VerdictWord(devices::RemovabilitySource source);
// "built in: the firmware (ACPI) says that its port is hard-wired"
std::string VerdictText(const devices::UsbRemovability& removability);
