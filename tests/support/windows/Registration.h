// The fixtures in the registry: the server's classes, the cameras in the list of capture devices, the USB
// devices, and the replacement of the configuration manager in the system's folder.
#pragma once

#include "support/windows/CameraFixtures.h"

namespace fixtures {

// Classes and the MJPG decoder, which every prefix has whatever its PC. The second also takes the cameras
// out.
void RegisterClasses();
void UnregisterClasses();

// Where this DLL is.
std::wstring ModulePath();

}  // namespace fixtures
