// Differences between the operating systems in features and texts.
#pragma once

namespace nuveqcam {

struct SystemTraits {
  bool hasSimulatedPc = false;           // --simulated
  const char* libraryFile = "";          // file name of the camera library
  const char* librarySearchPlaces = "";  // where it is searched, for the help
  const char* noDriverAdvice = "";       // for a camera without a capture device
  const char* noStatusAdvice = "";       // if the system does not report whether a device is removable
  const char* noCameraAdvice = "";       // for a PC without a built-in camera
};

const SystemTraits& ThisSystem();

}  // namespace nuveqcam
