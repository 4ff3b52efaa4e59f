// Differences between the operating systems, and between builds, in features and texts.
#pragma once

namespace nuveqcam {

struct SystemTraits {
  bool hasSimulatedPc = false;           // --simulated
  bool hasView = false;                  // view; it depends on a library that may be missing when building
  const char* libraryFile = "";          // file name of the camera library
  const char* librarySearchPlaces = "";  // where it is searched, for the help
  const char* noDriverAdvice = "";       // for a camera without a capture device
  const char* noStatusAdvice = "";       // if the system does not report whether a device is removable
  const char* noCameraAdvice = "";       // for a PC without a built-in camera
  const char* tempFolderVariable = "";   // environment variable: the folder for temporary files
};

const SystemTraits& ThisSystem();

}  // namespace nuveqcam
