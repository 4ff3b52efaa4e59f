// What the tool concludes from the devices of a PC, and how it says so.
#pragma once

#include <string>
#include <vector>

#include "Capabilities.h"
#include "Failure.h"
#include "PcSurvey.h"
#include "ThisSystem.h"

// What the camera library answered.
struct LibraryAnswer {
  std::optional<Capabilities> camera;
  std::string failure;  // why there is no camera although one was taken, for people; empty: none was taken
};

struct DoctorReport {
  ExitCode code = ExitCode::kOk;    // kOk: a camera is offered
  std::string conclusion;           // one line
  std::vector<std::string> advice;  // what to do where none is offered, a line each
};

DoctorReport Conclude(const PcSurvey& pc, const LibraryAnswer& answer,
                      const SystemTraits& system = ThisSystem());

std::string DoctorText(const PcSurvey& pc, const DoctorReport& report);
// One JSON object on one line.
std::string DoctorJson(const PcSurvey& pc, const LibraryAnswer& answer, const DoctorReport& report);
