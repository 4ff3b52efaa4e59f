#include <array>

#include "camera/LibraryLog.h"

namespace {

constexpr const char* kInUse = "the camera is in use by another program";
constexpr const char* kCloseIt = "close that program and try again";
constexpr const char* kNoSuchFormat = "the camera does not deliver that format";
constexpr const char* kChooseSize = "choose a size with --size from those of 'nuveqcam list'";

}  // namespace

std::span<const Explanation> KnownExplanations() {
  static constexpr std::array kKnown{
      Explanation{0x800700AA, kInUse, kCloseIt},  // ERROR_BUSY
      Explanation{0x80070020, kInUse, kCloseIt},  // ERROR_SHARING_VIOLATION
      // ERROR_NO_SYSTEM_RESOURCES: what a camera driver answers whose only stream is taken.
      Explanation{0x800705AA, "the camera is in use by another program, or its USB bus has no bandwidth left",
                  "close other programs that use a camera and try again, or ask for a smaller size"},
      // E_ACCESSDENIED
      Explanation{0x80070005, "Windows does not let this program use the camera",
                  "allow desktop apps to use it under Settings > Privacy & security > Camera"},
      // ERROR_DEVICE_NOT_CONNECTED
      Explanation{0x8007048F, "the camera has gone", "see with 'nuveqcam list' whether it has come back"},
      // ERROR_GEN_FAILURE
      Explanation{0x8007001F, "the camera does not work",
                  "look under Cameras in Device Manager what is wrong with it; restarting the PC resets it"},
      // ERROR_IO_DEVICE
      Explanation{0x8007045D, "the camera cannot be read",
                  "try again; restarting the PC resets a built-in camera"},
      // REGDB_E_CLASSNOTREG: editions of Windows that are named N come without the sample grabber.
      Explanation{0x80040154, "this Windows lacks a part of DirectShow",
                  "add the Media Feature Pack under Optional features in Settings and restart the PC"},
      Explanation{0x80040200, kNoSuchFormat, kChooseSize},  // VFW_E_INVALIDMEDIATYPE
      Explanation{0x8004022A, kNoSuchFormat, kChooseSize},  // VFW_E_TYPE_NOT_ACCEPTED
      // VFW_E_CANNOT_CONNECT
      Explanation{0x80040217, "no conversion is known from the camera's format",
                  "choose another size with --size from those of 'nuveqcam list'"},
  };
  return kKnown;
}
