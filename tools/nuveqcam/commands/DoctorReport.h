// What the tool concludes from the devices of a PC, and how it says so.
#pragma once

#include <string>
#include <vector>

#include "camera/Capabilities.h"
#include "cli/Failure.h"
#include "cli/SystemTraits.h"
#include "devices/DeviceInventory.h"

// What the camera library answered.
struct LibraryAnswer {
  std::optional<Capabilities> camera;
  std::string failure;  // why there is no camera although one was taken, for people; empty: none was taken

  bool TookOne() const { return camera.has_value() || !failure.empty(); }
};

struct DoctorReport {
  ExitCode code = ExitCode::kOk;    // kOk: a camera is offered
  std::string conclusion;           // one line
  std::vector<std::string> advice;  // what to do where none is offered, a line each
  bool tookOne = false;             // the library; so the survey's camera is the one that it took
};

// Whether the library took a camera exactly where the survey found one to take. A device that comes or goes
// between the two looks is in one of them alone.
bool Agree(const DeviceInventory& pc, const LibraryAnswer& answer);

DoctorReport Conclude(const DeviceInventory& pc, const LibraryAnswer& answer,
                      const SystemTraits& system = ThisSystem());

std::string DoctorText(const DeviceInventory& pc, const DoctorReport& report);
// One JSON object on one line.
std::string DoctorJson(const DeviceInventory& pc, const LibraryAnswer& answer, const DoctorReport& report);
