// Linux: texts for whether a USB device is removable, and for the source of that information.
#pragma once

#include <string>

#include "devices/DeviceProvider.h"

namespace nuveqcam {

// The value of "verdictFrom" in JSON, such as "firmware". Scripts rely on it.
std::string SourceWord(devices::RemovabilitySource source);
// "built in: the firmware (ACPI) declares its port hard-wired"
std::string RemovabilityText(const devices::UsbRemovability& removability);

}  // namespace nuveqcam
