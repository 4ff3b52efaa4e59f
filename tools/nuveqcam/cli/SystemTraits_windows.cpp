#include "cli/SystemTraits.h"

namespace nuveqcam {

const SystemTraits& ThisSystem() {
  static constexpr SystemTraits kWindows{
      .hasSimulatedPc = false,
      .libraryFile = "libnuveqcamerahandler.dll",
      .librarySearchPlaces = "in the program's folder",
      .noDriverAdvice = "see its state under Cameras in Device Manager",
      .noStatusAdvice = "see the state of its USB device in Device Manager",
      .noCameraAdvice = "look for it under Cameras in Device Manager"};
  return kWindows;
}

}  // namespace nuveqcam
