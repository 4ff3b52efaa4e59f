// Access to the virtual machine: the cameras that its kernel sees, and requests to the host to plug them in.
#pragma once

#include <string>

namespace guest {

// A camera as the kernel sees it.
struct CameraState {
  std::string node;       // "/dev/video0"; empty if the kernel has no such camera
  std::string removable;  // the sysfs attribute: "fixed", "removable", "unknown"
};
// camera: its serial number.
CameraState FindCamera(const std::string& camera);
// Returns false after the kernel has removed the USB device of an unplugged camera.
bool IsOnTheBus(const std::string& camera);

// Ask the host to plug a camera in or to unplug it. Return "ok" or an error message. The kernel detects the
// change some time later.
std::string PlugIn(const std::string& camera);
std::string Unplug(const std::string& camera);

}  // namespace guest
