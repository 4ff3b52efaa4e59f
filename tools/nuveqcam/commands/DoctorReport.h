// Conclusion and advice from the PC's devices and the camera library's result.
#pragma once

#include <string>
#include <vector>

#include "camera/Capabilities.h"
#include "cli/Failure.h"
#include "cli/SystemTraits.h"
#include "devices/DeviceInventory.h"

namespace nuveqcam {

class Camera;

// The camera library's result of a capability query.
struct LibraryResult {
  std::optional<Capabilities> camera;
  std::string failure;  // human-readable: why the selected camera cannot be read; empty if none was selected

  bool HasSelected() const { return camera.has_value() || !failure.empty(); }
};

struct DoctorReport {
  ExitCode code = ExitCode::kOk;    // kOk: a camera is offered
  std::string conclusion;           // one line
  std::vector<std::string> advice;  // what to do next, one entry per line
  bool hasSelected = false;         // the library selected a camera
};

// Queries the camera library. A missing camera and one that cannot be read are results and not failures.
LibraryResult QueryLibrary(Camera& camera);
// The devices that are present. Repeats the query if a device was added or removed since.
DeviceInventory GetMatchingInventory(Camera& camera, LibraryResult& result);

// The device that the library selects; null if there is none. Valid as long as the inventory.
const VideoNodeInfo* FindSelected(const DeviceInventory& inventory);
// "the first camera of USB device 1-5, which is built in"
std::string SelectionReason(const VideoNodeInfo& selected);

// Whether the library selected a camera if and only if the inventory has one to select. They differ if a
// device was added or removed between the two queries.
bool AreConsistent(const DeviceInventory& inventory, const LibraryResult& result);

DoctorReport MakeDoctorReport(const DeviceInventory& inventory, const LibraryResult& result,
                              const SystemTraits& system = ThisSystem());

std::string DoctorText(const DeviceInventory& inventory, const DoctorReport& report);

}  // namespace nuveqcam
