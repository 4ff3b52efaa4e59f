#include "cli/Help.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <sstream>

namespace nuveqcam {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

constexpr SystemTraits kFull{
    .hasSimulatedPc = true, .hasView = true, .libraryFile = "full.so", .librarySearchPlaces = "next to it"};
constexpr SystemTraits kMinimal{.libraryFile = "plain.dll", .librarySearchPlaces = "next to it"};
constexpr std::array kCommands{Command::kNone,   Command::kList,  Command::kRecord, Command::kSnapshot,
                               Command::kDoctor, Command::kProbe, Command::kView};

TEST(Help, DescribesSupportedFeatures) {
  EXPECT_THAT(HelpText(Command::kRecord, kFull), HasSubstr("(default: camera.mp4)"));
  EXPECT_THAT(HelpText(Command::kList, kFull), HasSubstr("--simulated [CLIP]"));
  EXPECT_THAT(HelpText(Command::kList, kFull), HasSubstr("a CLIP that cannot be played"));
  EXPECT_THAT(HelpText(Command::kList, kFull), HasSubstr("(default: full.so next to it)"));
}

TEST(Help, IsAligned) {
  EXPECT_THAT(HelpText(Command::kNone, kFull), StartsWith(R"(usage: nuveqcam [OPTION...] COMMAND [OPTION...]

Shows and records video of this PC's built-in camera. Uses the camera library
through its public interface, like any other host.

commands:
  list        show the camera, its picture sizes and frame rates
)"));
  EXPECT_THAT(HelpText(Command::kRecord, kFull),
              StartsWith(R"(usage: nuveqcam record [-o FILE] [--size WxH] [--fps N] [--seconds S]
                       [OPTION...]

Records H.264 video. Ctrl-C ends a recording early and completes the file; a
second Ctrl-C ends the program immediately. If the camera stops early, the
recording is kept and the exit code is 6.

  -o, --output FILE  output file: .mp4, or .h264 or .264 for the plain stream
                     (Annex B); - writes the plain stream to standard output
                     (default: camera.mp4)
  --size WxH         picture size in pixels, 1x1 to 65535x65535 (default: the
                     largest size up to 1280x720 that delivers the frame rate)
)"));
}

TEST(Help, OmitsUnsupportedFeatures) {
  for (const Command command : kCommands) {
    EXPECT_THAT(HelpText(command, kMinimal), Not(HasSubstr("--simulated")));
    EXPECT_THAT(HelpText(command, kMinimal), Not(HasSubstr("CLIP")));
    EXPECT_THAT(HelpText(command, kMinimal), HasSubstr("(default: plain.dll next to it)"));
  }
}

TEST(Help, OmitsViewIfItIsNotBuilt) {
  EXPECT_THAT(HelpText(Command::kNone, kFull),
              HasSubstr("  view        show the camera live in the browser\n"));
  EXPECT_THAT(HelpText(Command::kView, kFull), StartsWith("usage: nuveqcam view [--size WxH]"));
  EXPECT_THAT(HelpText(Command::kNone, kMinimal), Not(HasSubstr("view")));
}

TEST(Help, FitsIn80Columns) {
  for (const SystemTraits& system : {kFull, kMinimal, ThisSystem()}) {
    for (const Command command : kCommands) {
      std::istringstream text(HelpText(command, system));
      for (std::string line; std::getline(text, line);) {
        EXPECT_LE(line.size(), 80) << line;
      }
    }
  }
}

}  // namespace
}  // namespace nuveqcam
