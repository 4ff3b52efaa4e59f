#include <array>

#include "camera/LibraryLog.h"

namespace nuveqcam {
namespace {

constexpr const char* kInUse = "the camera is in use by another program";
constexpr const char* kCloseProgram = "close that program and try again";
constexpr const char* kNoSuchFormat = "the camera does not deliver that format";
constexpr const char* kChooseSize = "choose one of the sizes of 'nuveqcam list' with --size";

}  // namespace

std::span<const Explanation> KnownExplanations() {
  static constexpr std::array kKnown{
      Explanation{0x800700AA, kInUse, kCloseProgram},  // ERROR_BUSY
      Explanation{0x80070020, kInUse, kCloseProgram},  // ERROR_SHARING_VIOLATION
      // ERROR_NO_SYSTEM_RESOURCES: drivers also return it if their only stream is in use.
      Explanation{
          0x800705AA, "the camera is in use by another program, or its USB bus has not enough bandwidth",
          "close other programs that use a camera and try again, or choose a smaller size with --size"},
      // E_ACCESSDENIED
      Explanation{0x80070005, "Windows denies this program access to the camera",
                  "allow desktop apps to use it under Settings > Privacy & security > Camera"},
      // ERROR_DEVICE_NOT_CONNECTED
      Explanation{0x8007048F, "the camera was disconnected", "check with 'nuveqcam list' that it is present"},
      // ERROR_GEN_FAILURE
      Explanation{0x8007001F, "the camera does not work",
                  "see its state under Cameras in Device Manager; restarting the PC resets it"},
      // ERROR_IO_DEVICE
      Explanation{0x8007045D, "the camera cannot be read",
                  "try again; restarting the PC resets a built-in camera"},
      // REGDB_E_CLASSNOTREG: the N editions of Windows do not include the sample grabber.
      Explanation{0x80040154, "a component of DirectShow is missing",
                  "install the Media Feature Pack under Optional features in Settings and restart the PC"},
      Explanation{0x80040200, kNoSuchFormat, kChooseSize},  // VFW_E_INVALIDMEDIATYPE
      Explanation{0x8004022A, kNoSuchFormat, kChooseSize},  // VFW_E_TYPE_NOT_ACCEPTED
      // VFW_E_CANNOT_CONNECT
      Explanation{0x80040217, "the camera's format cannot be converted",
                  "choose another size of 'nuveqcam list' with --size"},
  };
  return kKnown;
}

}  // namespace nuveqcam
