#include <array>

#include "camera/LibraryLog.h"

namespace nuveqcam {

std::span<const Explanation> KnownExplanations() {
  static constexpr std::array kKnown{
      Explanation{0x800700AA, "the camera is in use by another program", "close that program and try again"},
      Explanation{0x80070005, "permission to use the camera was denied",
                  "add your user to the group video and log in again"},
      Explanation{0x8007048F, "the camera was disconnected", "check with 'nuveqcam list' that it is present"},
      Explanation{0x800705AA, "the USB bus has not enough bandwidth for the camera",
                  "close other cameras, or choose a smaller size with --size"},
      Explanation{0x8007045D, "the camera cannot be read",
                  "try again; restarting the PC resets a built-in camera"},
      Explanation{0x80040200, "the camera does not deliver that format",
                  "choose one of the sizes of 'nuveqcam list' with --size"},
      Explanation{0x80040217, "the camera's format cannot be converted",
                  "choose another size of 'nuveqcam list' with --size"},
  };
  return kKnown;
}

}  // namespace nuveqcam
