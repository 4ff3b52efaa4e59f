#include "cli/Help.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <sstream>

namespace {

using ::testing::HasSubstr;
using ::testing::Not;

constexpr SystemTraits kFull{
    .recordsMp4 = true, .hasSimulatedPc = true, .libraryFile = "full.so", .libraryPlaces = "beside it"};
constexpr SystemTraits kPlain{.libraryFile = "plain.dll", .libraryPlaces = "beside it"};
constexpr std::array kCommands{Command::kNone, Command::kList, Command::kRecord, Command::kSnapshot,
                               Command::kDoctor};

TEST(Help, NamesWhatTheSystemHas) {
  EXPECT_THAT(HelpText(Command::kRecord, kFull), HasSubstr("(camera.mp4)"));
  EXPECT_THAT(HelpText(Command::kList, kFull), HasSubstr("--simulated [CLIP]"));
  EXPECT_THAT(HelpText(Command::kList, kFull), HasSubstr("a CLIP that cannot be played"));
  EXPECT_THAT(HelpText(Command::kList, kFull), HasSubstr("(full.so beside it)"));
}

TEST(Help, SaysNothingOfWhatTheSystemLacks) {
  EXPECT_THAT(HelpText(Command::kRecord, kPlain), HasSubstr("(camera.h264)"));
  for (const Command command : kCommands) {
    EXPECT_THAT(HelpText(command, kPlain), Not(HasSubstr("mp4")));
    EXPECT_THAT(HelpText(command, kPlain), Not(HasSubstr("--simulated")));
    EXPECT_THAT(HelpText(command, kPlain), Not(HasSubstr("CLIP")));
    EXPECT_THAT(HelpText(command, kPlain), HasSubstr("(plain.dll beside it)"));
  }
}

TEST(Help, FitsATerminal) {
  for (const SystemTraits& system : {kFull, kPlain, ThisSystem()}) {
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
