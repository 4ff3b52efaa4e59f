// The output of list, doctor and probe as JSON.
#pragma once

#include <string>
#include <vector>

#include "commands/Commands.h"
#include "commands/DoctorReport.h"
#include "probe/ProbeReport.h"

namespace nuveqcam {

// Each function returns one JSON object on one line, in ASCII. Invalid UTF-8 in texts becomes U+FFFD. The man
// page describes the members.

// camera is null if there is none.
std::string ListJson(const Capabilities* camera, const std::vector<CaptureDeviceInfo>& devices);
std::string DoctorJson(const DeviceInventory& inventory, const LibraryResult& result,
                       const DoctorReport& report);
std::string ProbeJson(const ProbeReport& report);

}  // namespace nuveqcam
