#include <array>

#include "camera/LibraryLog.h"

std::span<const Explanation> KnownExplanations() {
  static constexpr std::array kKnown{
      Explanation{0x800700AA, "the camera is in use by another program", "close that program and try again"},
      Explanation{0x80070005, "there is no permission to use the camera",
                  "add your user to the group video and log in again"},
      Explanation{0x8007048F, "the camera has gone", "see with 'nuveqcam list' whether it has come back"},
      Explanation{0x800705AA, "the USB bus has no bandwidth left for the camera",
                  "close other cameras, or ask for a smaller size"},
      Explanation{0x8007045D, "the camera cannot be read",
                  "try again; restarting the PC resets a built-in camera"},
      Explanation{0x80040200, "the camera does not deliver that format",
                  "choose a size with --size from those of 'nuveqcam list'"},
      Explanation{0x80040217, "no conversion is known from the camera's format",
                  "choose another size with --size from those of 'nuveqcam list'"},
  };
  return kKnown;
}
