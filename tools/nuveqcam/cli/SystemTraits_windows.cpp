#include "cli/SystemTraits.h"

namespace nuveqcam {

const SystemTraits& ThisSystem() {
  static constexpr SystemTraits kWindows{
      .hasSimulatedPc = false,
      .hasView = NUVEQ_HAS_VIEW,
      .libraryFile = "libnuveqcamerahandler.dll",
      .librarySearchPlaces = "in the program's folder",
      .noDriverAdvice = "see its state under Cameras in Device Manager",
      .noStatusAdvice = "see the state of its USB device in Device Manager",
      .noCameraAdvice = "look for it under Cameras in Device Manager",
      .tempFolderVariable = "TMP"};
  return kWindows;
}

}  // namespace nuveqcam
