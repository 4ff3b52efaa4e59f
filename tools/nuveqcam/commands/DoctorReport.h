// Conclusion and advice from the PC's devices and the camera library's result.
#pragma once

#include <string>
#include <vector>

#include "camera/Capabilities.h"
#include "cli/Failure.h"
#include "cli/SystemTraits.h"
#include "devices/DeviceInventory.h"

namespace nuveqcam {

// The camera library's result of a capability query.
struct LibraryResult {
  std::optional<Capabilities> camera;
  std::string failure;  // human-readable: why the selected camera cannot be read; empty if none was selected

  bool HasSelected() const { return camera.has_value() || !failure.empty(); }
};

struct DoctorReport {
  ExitCode code = ExitCode::kOk;    // kOk: a camera is offered
  std::string conclusion;           // one line
  std::vector<std::string> advice;  // what to do if no camera is offered, one entry per line
  bool hasSelected = false;         // the library selected a camera
};

// Whether the library selected a camera if and only if the inventory has one to select. They differ if a
// device was added or removed between the two queries.
bool AreConsistent(const DeviceInventory& inventory, const LibraryResult& result);

DoctorReport MakeDoctorReport(const DeviceInventory& inventory, const LibraryResult& result,
                              const SystemTraits& system = ThisSystem());

std::string DoctorText(const DeviceInventory& inventory, const DoctorReport& report);

}  // namespace nuveqcam
