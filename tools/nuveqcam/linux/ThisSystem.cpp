#include "ThisSystem.h"

const SystemTraits& ThisSystem() {
  static constexpr SystemTraits kLinux{
      .recordsMp4 = true,
      .hasSimulatedPc = true,
      .libraryFile = "libnuveqcamerahandler.so",
      .libraryPlaces = "beside the\n                     program, else where the system finds it",
      .withoutCamera = "try --simulated"};
  return kLinux;
}
