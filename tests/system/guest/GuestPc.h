// The PC that the virtual machine is, from the inside and from the outside.
#pragma once

#include <string>

// Where a camera, known by its serial number, is at this moment.
struct CameraPlace {
  std::string node;        // "/dev/video0"; empty: the kernel does not have the camera
  std::string attachment;  // what the kernel says of it: "fixed", "removable", "unknown"
};
CameraPlace PlaceOf(const std::string& camera);
// False once the kernel has done all that there is to do for a camera which has gone.
bool IsOnTheBus(const std::string& camera);

// Plugs a camera's cable in or pulls it, and answers "ok" or what went wrong. The kernel notices a while
// after.
std::string PlugIn(const std::string& camera);
std::string PullOut(const std::string& camera);
