#include "cli/Help.h"

#include <string_view>

namespace {

constexpr const char* kTool = R"(usage: nuveqcam [OPTION...] COMMAND [OPTION...]

Shows and records what this PC's built-in camera sees, through the camera
library that a device platform would load.

commands:
  list        the camera, its picture sizes and frame rates
  record      a recording of H.264 video
  snapshot    one picture
  doctor      which camera is taken, and why no other one is

'nuveqcam COMMAND --help' describes a command and its options.

)";

constexpr const char* kList = R"(usage: nuveqcam list [--json] [OPTION...]

Shows the PC's built-in camera with its picture sizes and frame rates, and the
other capture devices with the reason why they are not offered.

  --json             one JSON object on one line:
                       cameras  none or one of {id, sizes: [{width, height}],
                                rates: [frames per second]}
                       devices  [{name, node, builtIn, reason}]
                     also, without cameras, when the exit code is 3

)";

constexpr const char* kRecord =
    R"(usage: nuveqcam record [-o FILE] [--size WxH] [--fps N] [--seconds S]
                       [OPTION...]

Records H.264 video. Ctrl-C ends a recording early and completes the file; a
second one ends the program at once. A recording that the camera cuts short is
kept, and the exit code is 6.

)";

constexpr const char* kOutputs =
    R"(  -o, --output FILE  what to write (camera.mp4): .mp4, or .h264 or .264 for the
                     stream as it is (Annex B); - for that on the standard
                     output
)";
constexpr const char* kRawOutputs =
    R"(  -o, --output FILE  what to write (camera.h264): .h264 or .264, the stream as
                     it is (Annex B); - for that on the standard output
)";

constexpr const char* kRecordRest =
    R"(  --size WxH         picture size in pixels, 1x1 to 65535x65535 (the largest
                     one offered up to 1280x720, else the smallest)
  --fps N            frames per second, 1 to 1000 (30 or what comes close)
  --seconds S        how long, up to 86400; 0: until Ctrl-C (5)

)";

constexpr const char* kSnapshot = R"(usage: nuveqcam snapshot [-o FILE] [--size WxH] [--skip N] [OPTION...]

Takes one picture.

  -o, --output FILE  what to write (camera.png): .png, or - for the standard
                     output
  --size WxH         picture size in pixels, 1x1 to 65535x65535 (the largest
                     one offered up to 1280x720, else the smallest)
  --skip N           pictures to let pass first, up to 100000, while the camera
                     adapts to the light (9)

)";

constexpr const char* kDoctor = R"(usage: nuveqcam doctor [--json] [OPTION...]

Shows every USB device with who says whether it can be removed, every capture
device with why it is taken or not, and, in the last lines, the camera that is
offered, or why none is and what to do about it.

  --json             one JSON object on one line:
                       offered, conclusion, advice: [line], failure,
                       camera   null or as in list
                       usbDevices      [{place, name, model, id, hub, video,
                                       removable, verdictFrom, verdict,
                                       connectType, attribute, verdictHub,
                                       firstFunction}]
                       captureDevices  [{taken, node, name, usbDevice, reason,
                                       openError, openIn}]
                       otherNodes      as captureDevices, without taken

The exit code is 0 when a camera is offered, 3 when there is none, and 4 when
there is one that cannot be read; none of these is an error message.

)";

constexpr const char* kGlobal = "options of every command:\n";

constexpr const char* kSimulated =
    R"(  --simulated [CLIP] use a simulated PC instead of this one; its camera plays
                     CLIP, a video file, or shows a picture of its own
)";

constexpr const char* kGlobalRest =
    R"(  -v, --verbose      the camera library's log on the standard error stream;
                     no progress line
  --library FILE     the camera library (@LIBRARY@)
  -h, --help         this text
  --version          the version

exit codes:
  0  success
  1  unexpected failure, for example no camera library
  2  wrong arguments@CLIP@
  3  this PC has no built-in camera
  4  the camera could not be opened: in use, no permission, size refused
  5  the output cannot be written
  6  the stream ended early: the camera was disconnected or fell silent, or the
     program was interrupted before the first picture
)";

void Replace(std::string& text, std::string_view mark, const std::string& with) {
  text.replace(text.find(mark), mark.size(), with);
}

std::string GlobalText(const SystemTraits& system) {
  std::string text = kGlobal;
  text += system.hasSimulatedPc ? kSimulated : "";
  text += kGlobalRest;
  Replace(text, "@LIBRARY@", std::string(system.libraryFile) + " " + system.libraryPlaces);
  Replace(text, "@CLIP@", system.hasSimulatedPc ? ", among them a CLIP that cannot be played" : "");
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

std::string VersionText() { return "nuveqcam " NUVEQ_VERSION "\n"; }
