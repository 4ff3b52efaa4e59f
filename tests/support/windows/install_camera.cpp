// Installs the camera fixtures in the current Wine prefix, which then has a built-in and a plug-in camera.
#include <cstdio>
#include <exception>

#include "support/windows/CameraFixtures.h"

int main() {
  try {
    fixtures::InstallFixtures();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "install_camera: %s\n", error.what());
    return 1;
  }
  std::puts("install_camera: installed a built-in and a plug-in camera");
  return 0;
}
