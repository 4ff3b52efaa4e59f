#include "cli/Arguments.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "recording/OutputKind.h"

namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using Words = std::vector<std::string>;

constexpr SystemTraits kSystem{.recordsMp4 = true, .hasSimulatedPc = true};
// Without a library for MP4 and without a simulated PC.
constexpr SystemTraits kPlainSystem{};

Options Read(const Words& words, const SystemTraits& system = kSystem) {
  auto parsed = ParseArguments(words, system);
  const auto* const wrong = std::get_if<UsageError>(&parsed);
  EXPECT_EQ(wrong, nullptr) << wrong->text;
  return wrong == nullptr ? std::get<Options>(parsed) : Options{};
}

// What is wrong with the words; empty when nothing is.
std::string Wrong(const Words& words, const SystemTraits& system = kSystem) {
  const auto parsed = ParseArguments(words, system);
  const auto* const wrong = std::get_if<UsageError>(&parsed);
  return wrong != nullptr ? wrong->text : "";
}

TEST(Arguments, CommandsHaveTheirDefaults) {
  EXPECT_EQ(Read({"list"}).command, Command::kList);
  const Options record = Read({"record"});
  EXPECT_EQ(record.command, Command::kRecord);
  EXPECT_EQ(record.output, "camera.mp4");
  EXPECT_EQ(record.seconds, 5);
  EXPECT_EQ(record.size, std::nullopt);
  EXPECT_EQ(record.fps, std::nullopt);
  EXPECT_FALSE(record.isSimulated);
  EXPECT_FALSE(record.isVerbose);
  const Options snapshot = Read({"snapshot"});
  EXPECT_EQ(snapshot.output, "camera.png");
  EXPECT_EQ(snapshot.skip, 9);
  EXPECT_EQ(Read({"doctor"}).command, Command::kDoctor);
}

TEST(Arguments, OptionsAreReadInEveryForm) {
  const Options options =
      Read({"-v", "record", "-o", "a.h264", "--size", "640x480", "--fps=15", "--seconds", "0"});
  EXPECT_TRUE(options.isVerbose);
  EXPECT_EQ(options.output, "a.h264");
  EXPECT_EQ(options.size, (Size{640, 480}));
  EXPECT_EQ(options.fps, 15);
  EXPECT_EQ(options.seconds, 0);
  EXPECT_EQ(Read({"record", "-oa.264"}).output, "a.264");
  EXPECT_EQ(Read({"record", "-o=a.264"}).output, "a.264");
  EXPECT_EQ(Read({"record", "-o=-"}).output, "-");
  EXPECT_EQ(Read({"record", "-oa=b.mp4"}).output, "a=b.mp4");
  EXPECT_EQ(Read({"record", "-o", "=.mp4"}).output, "=.mp4");
  EXPECT_EQ(Read({"record", "--output=a=b.mp4"}).output, "a=b.mp4");
  EXPECT_EQ(Read({"record", "-o", "-"}).output, "-");
  EXPECT_EQ(Read({"--library", "x.so", "list", "--json"}).library, "x.so");
  EXPECT_TRUE(Read({"list", "--json", "--verbose"}).wantsJson);
  EXPECT_TRUE(Read({"--simulated", "doctor", "--json"}).wantsJson);
  EXPECT_EQ(Read({"snapshot", "--skip", "0"}).skip, 0);
}

TEST(Arguments, LastOfTwoCounts) {
  EXPECT_EQ(Read({"record", "--fps", "15", "--fps", "10"}).fps, 10);
  EXPECT_EQ(Read({"record", "-o", "a.mp4", "-o", "b.mp4"}).output, "b.mp4");
  EXPECT_EQ(Read({"--simulated", "a.mp4", "list", "--simulated"}).clip, "");
}

TEST(Arguments, WordAfterSimulatedIsTheClipUnlessItIsSomethingElse) {
  for (const Words& words : {Words{"--simulated", "list"}, Words{"list", "--simulated"},
                             Words{"list", "--simulated", "-v"}, Words{"--simulated", "-v", "list"}}) {
    EXPECT_TRUE(Read(words).isSimulated);
    EXPECT_EQ(Read(words).clip, "");
  }
  for (const Words& words : {Words{"--simulated", "a.mp4", "list"}, Words{"list", "--simulated", "a.mp4"},
                             Words{"--simulated=a.mp4", "list"}, Words{"list", "-v", "--simulated=a.mp4"}}) {
    EXPECT_EQ(Read(words).clip, "a.mp4");
  }
  EXPECT_EQ(Read({"--simulated=record", "list"}).clip, "record");
}

TEST(Arguments, HelpAndVersionNeedNoCommand) {
  EXPECT_TRUE(Read({"--help"}).wantsHelp);
  EXPECT_TRUE(Read({"-h"}).wantsHelp);
  EXPECT_TRUE(Read({"--version"}).wantsVersion);
  EXPECT_EQ(Read({"record", "--help"}).command, Command::kRecord);
  EXPECT_TRUE(Read({"record", "--help"}).wantsHelp);
}

TEST(Arguments, NumbersAreWholeAndInRange) {
  for (const char* const good : {"1x1", "65535x65535"}) {
    EXPECT_EQ(Wrong({"record", "--size", good}), "");
  }
  for (const char* const bad :
       {"", "x", "640", "640x", "x480", "0x480", "640x0", "65536x1", "1x65536", "-1x5", "+1x5", " 1x5",
        "1x5 ", "1X5", "1x5x5", "0x1x1", "99999999999999999999x1", "1.5x2"}) {
    EXPECT_NE(Wrong({"record", "--size", bad}), "") << bad;
  }
  EXPECT_EQ(Wrong({"record", "--fps", "1000"}), "");
  EXPECT_EQ(Wrong({"record", "--seconds", "86400"}), "");
  EXPECT_EQ(Wrong({"snapshot", "--skip", "100000"}), "");
  EXPECT_EQ(Wrong({"record", "--fps", "0"}), "--fps wants a whole number from 1 to 1000, not '0'");
  EXPECT_EQ(Wrong({"record", "--fps", "1001"}), "--fps wants a whole number from 1 to 1000, not '1001'");
  EXPECT_EQ(Wrong({"record", "--seconds", "86401"}),
            "--seconds wants a whole number from 0 to 86400, not '86401'");
  EXPECT_EQ(Wrong({"record", "--seconds", "5s"}), "--seconds wants a whole number from 0 to 86400, not '5s'");
  EXPECT_NE(Wrong({"snapshot", "--skip", "100001"}), "");
}

TEST(Arguments, MistakesAreNamed) {
  EXPECT_THAT(Wrong({}), HasSubstr("a command is missing"));
  EXPECT_THAT(Wrong({"-v"}), HasSubstr("a command is missing"));
  EXPECT_THAT(Wrong({"fly"}), HasSubstr("unknown command 'fly'"));
  EXPECT_EQ(Wrong({"list", "record"}), "'record' is one word too many");
  EXPECT_EQ(Wrong({"list", "more"}), "'more' is one word too many");
  EXPECT_EQ(Wrong({"list", "--bogus"}), "unknown option '--bogus'");
  EXPECT_EQ(Wrong({"list", "-x"}), "unknown option '-x'");
  EXPECT_EQ(Wrong({"list", "-"}), "unknown option '-'");
  EXPECT_EQ(Wrong({"list", "--"}), "unknown option '--'");
  EXPECT_EQ(Wrong({"list", "--jso"}), "unknown option '--jso'");
  EXPECT_EQ(Wrong({"record", "--fps"}), "--fps lacks its value");
  EXPECT_EQ(Wrong({"record", "--fps="}), "--fps= lacks its value");
  EXPECT_EQ(Wrong({"record", "-o="}), "--output= lacks its value");
  EXPECT_EQ(Wrong({"record", "-o", ""}), "--output wants a file name");
  EXPECT_EQ(Wrong({"list", "--json=yes"}), "--json takes no value");
  EXPECT_EQ(Wrong({"list", "--fps", "3"}), "--fps is no option of list");
  EXPECT_EQ(Wrong({"doctor", "--fps", "3"}), "--fps is no option of doctor");
  EXPECT_EQ(Wrong({"record", "--skip", "3"}), "--skip is no option of record");
  EXPECT_EQ(Wrong({"snapshot", "--seconds", "3"}), "--seconds is no option of snapshot");
}

TEST(Arguments, WhatWouldSteerATerminalIsNotRepeated) {
  EXPECT_EQ(Wrong({"\x1b[2Jlist"}),
            "unknown command '?[2Jlist'; the commands are list, record, snapshot and doctor");
}

TEST(Arguments, OutputIsWhatItsNameSays) {
  EXPECT_EQ(KindOfRecording("a.mp4"), OutputKind::kMp4);
  EXPECT_EQ(KindOfRecording("a.b/C.MP4"), OutputKind::kMp4);
  EXPECT_EQ(KindOfRecording("a.h264"), OutputKind::kRawH264);
  EXPECT_EQ(KindOfRecording(".264"), OutputKind::kRawH264);
  EXPECT_EQ(KindOfRecording("-"), OutputKind::kRawH264);
  EXPECT_EQ(KindOfPicture("a.Png"), OutputKind::kPng);
  EXPECT_EQ(KindOfPicture("-"), OutputKind::kPng);
  for (const char* const name : {"", "a", "a.", "mp4", "a.mp4/b", "a.mp4.bak", "a.png"}) {
    EXPECT_EQ(KindOfRecording(name), OutputKind::kUnknown) << name;
  }
  EXPECT_EQ(KindOfPicture("a.mp4"), OutputKind::kUnknown);
  EXPECT_THAT(Wrong({"record", "-o", "a.avi"}), HasSubstr(".mp4, .h264 or .264"));
  EXPECT_THAT(Wrong({"snapshot", "-o", "a.gif"}), HasSubstr(".png"));
}

TEST(Arguments, SystemWithoutMp4RecordsTheStreamAsItIs) {
  EXPECT_EQ(Read({"record"}, kPlainSystem).output, "camera.h264");
  EXPECT_EQ(Read({"record", "-o", "a.264"}, kPlainSystem).output, "a.264");
  EXPECT_EQ(Wrong({"record", "-o", "a.MP4"}, kPlainSystem),
            "this build writes .h264, not .mp4; name the recording .h264 or .264");
  EXPECT_THAT(Wrong({"record", "-o", "a.avi"}, kPlainSystem), EndsWith("a recording is named .h264 or .264"));
  EXPECT_EQ(Read({"snapshot"}, kPlainSystem).output, "camera.png");
}

TEST(Arguments, SystemWithoutASimulatedPcSaysSo) {
  for (const Words& words : {Words{"list", "--simulated"}, Words{"--simulated=a.mp4", "snapshot"}}) {
    EXPECT_EQ(Wrong(words, kPlainSystem), "there is no simulated PC on this system; leave --simulated out");
  }
  EXPECT_EQ(Wrong({"list"}, kPlainSystem), "");
}

// Random lines of words that mean something, in part or whole: each is either read or refused with a text,
// and what is read keeps the promises that the commands rely on.
TEST(Arguments, AnyLineIsEitherReadOrRefusedWithAReason) {
  const Words pieces{"list",   "record",  "snapshot",  "--simulated", "-o",     "--output",
                     "--size", "640x480", "--fps",     "--seconds",   "--skip", "--json",
                     "-v",     "--help",  "--version", "--library",   "=",      "x",
                     "9",      "0",       "-",         "--",          "a.mp4",  "a.png",
                     "",       "\xff",    "-o-",       "4294967296",  "doctor"};
  std::mt19937 random(1);  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same lines every time
  std::size_t readLines = 0;
  for (int line = 0; line < 20000; ++line) {
    Words words;
    for (auto count = random() % 6; count > 0; --count) {
      std::string word = pieces[random() % pieces.size()];
      if (random() % 4 == 0) {
        word += pieces[random() % pieces.size()];
      }
      words.push_back(word);
    }
    const auto parsed = ParseArguments(words, line % 2 == 0 ? kSystem : kPlainSystem);
    if (const auto* const wrong = std::get_if<UsageError>(&parsed)) {
      ASSERT_NE(wrong->text, "");
      continue;
    }
    ++readLines;
    const auto& options = std::get<Options>(parsed);
    ASSERT_TRUE(options.command != Command::kNone || options.wantsHelp || options.wantsVersion);
    if (options.command != Command::kNone && !options.wantsHelp && !options.wantsVersion) {
      ASSERT_EQ(options.output.empty(),
                options.command == Command::kList || options.command == Command::kDoctor);
      ASSERT_TRUE(!options.size || (options.size->width > 0 && options.size->height > 0));
      ASSERT_LE(options.seconds, 86400U);
    }
  }
  EXPECT_GT(readLines, 100U);
}

}  // namespace
