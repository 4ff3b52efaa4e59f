// Puts the camera fixtures into the Wine prefix that it runs in, which then is a laptop with a built-in
// camera and another one plugged in.
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
  std::puts("install_camera: this PC has a built-in camera now");
  return 0;
}
