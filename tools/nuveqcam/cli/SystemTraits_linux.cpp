#include "cli/SystemTraits.h"

namespace nuveqcam {

const SystemTraits& ThisSystem() {
  static constexpr SystemTraits kLinux{
      .hasSimulatedPc = true,
      .hasView = NUVEQ_HAS_VIEW,
      .libraryFile = "libnuveqcamerahandler.so",
      .librarySearchPlaces = "in the program's folder, else found by the dynamic linker",
      .noDriverAdvice = "load one with 'sudo modprobe uvcvideo', and look for messages with 'sudo dmesg'",
      .noStatusAdvice = "run this outside containers and sandboxes, or use a newer kernel",
      .noCameraAdvice = "try --simulated",
      .tempFolderVariable = "TMPDIR"};
  return kLinux;
}

}  // namespace nuveqcam
