#include "cli/Help.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <sstream>

namespace nuveqcam {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

constexpr SystemTraits kFull{.recordsMp4 = true,
                             .hasSimulatedPc = true,
                             .libraryFile = "full.so",
                             .librarySearchPlaces = "next to it"};
constexpr SystemTraits kMinimal{.libraryFile = "plain.dll", .librarySearchPlaces = "next to it"};
constexpr std::array kCommands{Command::kNone, Command::kList, Command::kRecord, Command::kSnapshot,
                               Command::kDoctor};

TEST(Help, DescribesSupportedFeatures) {
  EXPECT_THAT(HelpText(Command::kRecord, kFull), HasSubstr("(default: camera.mp4)"));
  EXPECT_THAT(HelpText(Command::kList, kFull), HasSubstr("--simulated [CLIP]"));
  EXPECT_THAT(HelpText(Command::kList, kFull), HasSubstr("a CLIP that cannot be played"));
  EXPECT_THAT(HelpText(Command::kList, kFull), HasSubstr("(default: full.so next to it)"));
}

TEST(Help, OmitsUnsupportedFeatures) {
  EXPECT_THAT(HelpText(Command::kRecord, kMinimal), HasSubstr("(default: camera.h264)"));
  for (const Command command : kCommands) {
    EXPECT_THAT(HelpText(command, kMinimal), Not(HasSubstr("mp4")));
    EXPECT_THAT(HelpText(command, kMinimal), Not(HasSubstr("--simulated")));
    EXPECT_THAT(HelpText(command, kMinimal), Not(HasSubstr("CLIP")));
    EXPECT_THAT(HelpText(command, kMinimal), HasSubstr("(default: plain.dll next to it)"));
  }
}

TEST(Help, FitsIn80Columns) {
  for (const SystemTraits& system : {kFull, kMinimal, ThisSystem()}) {
    for (const Command command : kCommands) {
      std::istringstream text(HelpText(command, system));
      for (std::string line; std::getline(text, line);) {
        EXPECT_LE(line.size(), 80) << line;
        EXPECT_EQ(line.find('@'), std::string::npos) << line;
      }
    }
  }
}

}  // namespace
}  // namespace nuveqcam
