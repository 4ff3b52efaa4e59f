#include "cli/SystemTraits.h"

const SystemTraits& ThisSystem() {
  static constexpr SystemTraits kWindows{
      .recordsMp4 = false,
      .hasSimulatedPc = false,
      .libraryFile = "libnuveqcamerahandler.dll",
      .libraryPlaces = "beside the\n                     program",
      .withoutDriver = "look under Cameras in Device Manager what is wrong",
      .withoutStatus = "see the state of its USB device in Device Manager",
      .withoutCamera = "look for it under Cameras in Device Manager"};
  return kWindows;
}
