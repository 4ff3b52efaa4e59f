#include "cli/SystemTraits.h"

const SystemTraits& ThisSystem() {
  static constexpr SystemTraits kLinux{
      .recordsMp4 = true,
      .hasSimulatedPc = true,
      .libraryFile = "libnuveqcamerahandler.so",
      .libraryPlaces = "beside the\n                     program, else where the system finds it",
      .withoutDriver =
          "load one with 'sudo modprobe uvcvideo' and see with 'sudo dmesg' what the kernel says",
      .withoutStatus = "run this outside containers and sandboxes, or use a newer kernel",
      .withoutCamera = "try --simulated"};
  return kLinux;
}
