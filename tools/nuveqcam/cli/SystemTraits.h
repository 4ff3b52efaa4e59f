// What the tool offers and says differently from system to system.
#pragma once

struct SystemTraits {
  bool recordsMp4 = false;         // else the stream as it is, and nothing but that
  bool hasSimulatedPc = false;     // --simulated
  const char* libraryFile = "";    // the camera library
  const char* libraryPlaces = "";  // where it is looked for, for the help's column
  const char* withoutDriver = "";  // what to do about a camera that has no capture device
  const char* withoutStatus =
      "";  // what to do where the system does not tell whether a device can be removed
  const char* withoutCamera = "";  // what else to try on a PC that has no built-in camera
};

const SystemTraits& ThisSystem();
