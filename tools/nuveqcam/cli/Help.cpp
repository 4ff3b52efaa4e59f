#include "cli/Help.h"

#include <string_view>

#include "cli/Version.h"

namespace nuveqcam {
namespace {

constexpr const char* kTool = R"(usage: nuveqcam [OPTION...] COMMAND [OPTION...]

Shows and records video of this PC's built-in camera. Uses the camera library
through its public interface, like any other host.

commands:
  list        show the camera, its picture sizes and frame rates
  record      record H.264 video
  snapshot    take one picture
  doctor      show which camera is selected, and why the others are not

'nuveqcam COMMAND --help' describes a command and its options.

)";

constexpr const char* kList = R"(usage: nuveqcam list [--json] [OPTION...]

Shows the PC's built-in camera with its picture sizes and frame rates, and the
other capture devices with the reason why they are not offered.

  --json             print one JSON object on one line:
                       cameras  empty or [{id, sizes: [{width, height}],
                                rates: [frames per second]}]
                       devices  [{name, node, builtIn, reason}]
                     also printed if there is no camera (exit code 3)

)";

constexpr const char* kRecord =
    R"(usage: nuveqcam record [-o FILE] [--size WxH] [--fps N] [--seconds S]
                       [OPTION...]

Records H.264 video. Ctrl-C ends a recording early and completes the file; a
second Ctrl-C ends the program immediately. If the camera stops early, the
recording is kept and the exit code is 6.

)";

constexpr const char* kOutputs =
    R"(  -o, --output FILE  output file: .mp4, or .h264 or .264 for the plain stream
                     (Annex B); - writes the plain stream to standard output
                     (default: camera.mp4)
)";
constexpr const char* kRawOutputs =
    R"(  -o, --output FILE  output file: .h264 or .264, the plain stream (Annex B);
                     - writes it to standard output (default: camera.h264)
)";

constexpr const char* kRecordRest =
    R"(  --size WxH         picture size in pixels, 1x1 to 65535x65535 (default: the
                     largest size up to 1280x720, else the smallest)
  --fps N            frames per second, 1 to 1000 (default: 30 if offered,
                     else the highest lower rate, else the lowest)
  --seconds S        duration, up to 86400; 0: until Ctrl-C (default: 5)

)";

constexpr const char* kSnapshot = R"(usage: nuveqcam snapshot [-o FILE] [--size WxH] [--skip N] [OPTION...]

Takes one picture.

  -o, --output FILE  output file: .png, or - for standard output
                     (default: camera.png)
  --size WxH         picture size in pixels, 1x1 to 65535x65535 (default: the
                     largest size up to 1280x720, else the smallest)
  --skip N           number of pictures to skip, up to 100000, while the camera
                     adjusts its exposure (default: 9)

)";

constexpr const char* kDoctor = R"(usage: nuveqcam doctor [--json] [OPTION...]

Shows whether each USB device is removable and which source says so, why each
capture device is or is not selected, and finally the offered camera, or why
there is none and what to do about it.

  --json             print one JSON object on one line:
                       offered, conclusion, advice: [line], failure,
                       camera   null or as in list
                       usbDevices      [{place, name, model, id, hub, video,
                                       removable, verdictFrom, verdict,
                                       connectType, attribute, verdictHub,
                                       firstFunction}]
                       captureDevices  [{taken, node, name, usbDevice, reason,
                                       openError, openIn}]
                       otherNodes      as captureDevices, without taken

The exit code is 0 if a camera is offered, 3 if there is none, and 4 if there is
one that cannot be read. None of these prints an error message.

)";

constexpr const char* kGlobal = "options for all commands:\n";

constexpr const char* kSimulated =
    R"(  --simulated [CLIP] use a simulated PC instead of this one; its camera plays
                     CLIP, a video file, or a generated picture
)";

constexpr const char* kGlobalRest =
    R"(  -v, --verbose      print the camera library's log to standard error, and no
                     progress line
  --library FILE     camera library to load
                     (default: @LIBRARY@)
  -h, --help         print this text
  --version          print the versions of nuveqcam and of its libraries

exit codes:
  0  success
  1  unexpected failure, for example a missing camera library
  2  invalid arguments@CLIP@
  3  this PC has no built-in camera
  4  the camera cannot be opened: in use, permission denied, size not supported
  5  the output cannot be written
  6  the stream ended early: the camera was disconnected or stopped delivering
     frames, or the program was interrupted before the first picture
)";

void Replace(std::string& text, std::string_view placeholder, const std::string& value) {
  text.replace(text.find(placeholder), placeholder.size(), value);
}

std::string GlobalText(const SystemTraits& system) {
  std::string text = kGlobal;
  text += system.hasSimulatedPc ? kSimulated : "";
  text += kGlobalRest;
  Replace(text, "@LIBRARY@", std::string(system.libraryFile) + " " + system.librarySearchPlaces);
  Replace(text, "@CLIP@", system.hasSimulatedPc ? ", or a CLIP that cannot be played" : "");
  return text;
}

}  // namespace

std::string HelpText(Command command, const SystemTraits& system) {
  const std::string global = GlobalText(system);
  switch (command) {
    case Command::kList:
      return kList + global;
    case Command::kRecord:
      return std::string(kRecord) + (system.recordsMp4 ? kOutputs : kRawOutputs) + kRecordRest + global;
    case Command::kSnapshot:
      return kSnapshot + global;
    case Command::kDoctor:
      return kDoctor + global;
    case Command::kNone:
      break;
  }
  return kTool + global;
}

std::string VersionText() { return "nuveqcam " NUVEQ_VERSION "\n" + LibraryVersions(); }

}  // namespace nuveqcam
