#include "cli/Arguments.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "cli/Text.h"
#include "recording/OutputKind.h"

namespace nuveqcam {
namespace {

using ::testing::HasSubstr;
using Words = std::vector<std::string>;

constexpr SystemTraits kSystem{.hasSimulatedPc = true, .hasView = true};
// Without a simulated PC and view.
constexpr SystemTraits kMinimalSystem{};

Options Parse(const Words& words, const SystemTraits& system = kSystem) {
  auto parsed = ParseArguments(words, system);
  const auto* const error = std::get_if<UsageError>(&parsed);
  EXPECT_EQ(error, nullptr) << error->text;
  return error == nullptr ? std::get<Options>(parsed) : Options{};
}

// The usage error for the words; empty if there is none.
std::string ErrorOf(const Words& words, const SystemTraits& system = kSystem) {
  const auto parsed = ParseArguments(words, system);
  const auto* const error = std::get_if<UsageError>(&parsed);
  return error != nullptr ? error->text : "";
}

TEST(Arguments, CommandsHaveDefaults) {
  EXPECT_EQ(Parse({"list"}).command, Command::kList);
  const Options record = Parse({"record"});
  EXPECT_EQ(record.command, Command::kRecord);
  EXPECT_EQ(record.output, "camera.mp4");
  EXPECT_EQ(record.seconds, 5);
  EXPECT_EQ(record.size, std::nullopt);
  EXPECT_EQ(record.fps, std::nullopt);
  EXPECT_FALSE(record.isSimulated);
  EXPECT_FALSE(record.isVerbose);
  const Options snapshot = Parse({"snapshot"});
  EXPECT_EQ(snapshot.output, "camera.png");
  EXPECT_EQ(snapshot.skip, 9);
  EXPECT_EQ(Parse({"doctor"}).command, Command::kDoctor);
  const Options probe = Parse({"probe"});
  EXPECT_EQ(probe.command, Command::kProbe);
  EXPECT_EQ(probe.probeSeconds, 3);
  EXPECT_FALSE(probe.wantsAllRates);
  const Options view = Parse({"view"});
  EXPECT_EQ(view.command, Command::kView);
  EXPECT_EQ(view.port, 0);
  EXPECT_EQ(view.size, std::nullopt);
  EXPECT_EQ(view.fps, std::nullopt);
  EXPECT_TRUE(view.opensBrowser);
  EXPECT_FALSE(view.keepsCameraOpen);
}

TEST(Arguments, ProbeHasItsOwnSeconds) {
  const Options probe = Parse({"probe", "--seconds", "60", "--all-rates", "--json"});
  EXPECT_EQ(probe.probeSeconds, 60);
  EXPECT_EQ(probe.seconds, Options().seconds);
  EXPECT_TRUE(probe.wantsAllRates);
  EXPECT_TRUE(probe.wantsJson);
  EXPECT_EQ(ErrorOf({"probe", "--seconds", "0"}), "--seconds must be an integer from 1 to 60, not '0'");
  EXPECT_EQ(ErrorOf({"probe", "--seconds", "61"}), "--seconds must be an integer from 1 to 60, not '61'");
  EXPECT_EQ(ErrorOf({"record", "--all-rates"}), "--all-rates is not valid for 'record'");
  EXPECT_EQ(ErrorOf({"probe", "--size", "640x480"}), "--size is not valid for 'probe'");
}

TEST(Arguments, OptionsAreParsedInEveryForm) {
  const Options options =
      Parse({"-v", "record", "-o", "a.h264", "--size", "640x480", "--fps=15", "--seconds", "0"});
  EXPECT_TRUE(options.isVerbose);
  EXPECT_EQ(options.output, "a.h264");
  EXPECT_EQ(options.size, (Size{640, 480}));
  EXPECT_EQ(options.fps, 15);
  EXPECT_EQ(options.seconds, 0);
  EXPECT_EQ(Parse({"record", "-oa.264"}).output, "a.264");
  EXPECT_EQ(Parse({"record", "-o=a.264"}).output, "=a.264");
  EXPECT_EQ(Parse({"record", "-oa=b.mp4"}).output, "a=b.mp4");
  EXPECT_EQ(Parse({"record", "-o", "=.mp4"}).output, "=.mp4");
  EXPECT_EQ(Parse({"record", "--output=a=b.mp4"}).output, "a=b.mp4");
  EXPECT_EQ(Parse({"record", "-o", "-"}).output, "-");
  EXPECT_EQ(Parse({"--library", "x.so", "list", "--json"}).library, "x.so");
  EXPECT_TRUE(Parse({"list", "--json", "--verbose"}).wantsJson);
  EXPECT_TRUE(Parse({"--simulated", "doctor", "--json"}).wantsJson);
  EXPECT_EQ(Parse({"snapshot", "--skip", "0"}).skip, 0);
  const Options view = Parse(
      {"view", "--port", "8080", "--no-open", "--keep-open", "--json", "--size=640x480", "--fps", "15"});
  EXPECT_EQ(view.port, 8080);
  EXPECT_FALSE(view.opensBrowser);
  EXPECT_TRUE(view.keepsCameraOpen);
  EXPECT_TRUE(view.wantsJson);
  EXPECT_EQ(view.size, (Size{640, 480}));
  EXPECT_EQ(view.fps, 15);
  EXPECT_EQ(Parse({"--library=[a,b]", "list"}).library, "[a,b]");
  EXPECT_EQ(Parse({"list", "--library", "{}"}).library, "{}");
  EXPECT_EQ(Parse({"list", "--library", "--"}).library, "--");
}

TEST(Arguments, ShortOptionsCanBeCombined) {
  const Options options = Parse({"record", "-voa.mp4"});
  EXPECT_TRUE(options.isVerbose);
  EXPECT_EQ(options.output, "a.mp4");
  EXPECT_TRUE(Parse({"list", "-vh"}).wantsHelp);
  EXPECT_EQ(Parse({"record", "-vo", "a.mp4"}).output, "a.mp4");
}

TEST(Arguments, ValuesMayLookLikeOptions) {
  for (const char* const name : {"++", "--", "--help", "-v", "--fps=", "list", "list.json"}) {
    EXPECT_EQ(Parse({"list", "--library", name}).library, name);
    EXPECT_FALSE(Parse({"list", "--library", name}).wantsHelp);
  }
}

TEST(Arguments, GlobalOptionsMayPrecedeOrFollowTheCommand) {
  for (const Words& words : {Words{"-v", "--library", "x.so", "--simulated", "list"},
                             Words{"list", "-v", "--library", "x.so", "--simulated"},
                             Words{"--library=x.so", "list", "--simulated", "--verbose"}}) {
    const Options options = Parse(words);
    EXPECT_TRUE(options.isVerbose);
    EXPECT_TRUE(options.isSimulated);
    EXPECT_EQ(options.library, "x.so");
  }
}

TEST(Arguments, OptionsOfACommandFollowIt) {
  EXPECT_EQ(ErrorOf({"--json", "list"}), "--json must follow 'list'");
  EXPECT_EQ(ErrorOf({"-oa.mp4", "record"}), "--output must follow 'record'");
  EXPECT_EQ(ErrorOf({"--fps", "30", "record"}), "--fps must follow 'record'");
  EXPECT_EQ(ErrorOf({"--fps", "30", "list"}), "--fps is not valid for 'list'");
}

TEST(Arguments, WordsAfterTwoDashesAreNotOptions) {
  EXPECT_EQ(Parse({"list", "--"}).command, Command::kList);
  EXPECT_EQ(ErrorOf({"list", "--", "-v"}), "'-v': unexpected argument");
  EXPECT_EQ(ErrorOf({"list", "--", "--json"}), "'--json': unexpected argument");
  EXPECT_EQ(ErrorOf({"list", "--", "record"}), "'record': unexpected argument");
  EXPECT_EQ(ErrorOf({"list", "--", "++"}), "'++': unexpected argument");
  EXPECT_EQ(ErrorOf({"list", "--", "--fps="}), "'--fps=': unexpected argument");
  EXPECT_EQ(ErrorOf({"--", "list"}),
            "missing command before '--': list, record, snapshot, doctor, probe or view");
  EXPECT_EQ(ErrorOf({"--", "--help"}),
            "missing command before '--': list, record, snapshot, doctor, probe or view");
  EXPECT_TRUE(Parse({"list", "--simulated", "--"}).isSimulated);
  EXPECT_EQ(ErrorOf({"list", "--simulated", "--", "--version"}), "'--version': unexpected argument");
  EXPECT_EQ(ErrorOf({"list", "--simulated", "--", "a.mp4"}), "'a.mp4': unexpected argument");
  EXPECT_EQ(ErrorOf({"--simulated", "--", "list"}),
            "missing command before '--': list, record, snapshot, doctor, probe or view");
}

TEST(Arguments, LastOccurrenceOfAnOptionApplies) {
  EXPECT_EQ(Parse({"record", "--fps", "15", "--fps", "10"}).fps, 10);
  EXPECT_EQ(Parse({"record", "-o", "a.mp4", "-o", "b.mp4"}).output, "b.mp4");
  EXPECT_EQ(Parse({"--simulated", "a.mp4", "list", "--simulated"}).clip, "");
}

TEST(Arguments, WordAfterSimulatedIsTheClipUnlessItIsAnOptionOrACommand) {
  for (const Words& words : {Words{"--simulated", "list"}, Words{"list", "--simulated"},
                             Words{"list", "--simulated", "-v"}, Words{"--simulated", "-v", "list"}}) {
    EXPECT_TRUE(Parse(words).isSimulated);
    EXPECT_EQ(Parse(words).clip, "");
  }
  for (const Words& words : {Words{"--simulated", "a.mp4", "list"}, Words{"list", "--simulated", "a.mp4"},
                             Words{"--simulated=a.mp4", "list"}, Words{"list", "-v", "--simulated=a.mp4"}}) {
    EXPECT_EQ(Parse(words).clip, "a.mp4");
  }
  EXPECT_EQ(Parse({"--simulated=record", "list"}).clip, "record");
  EXPECT_EQ(ErrorOf({"list", "--simulated", "record"}), "'record': unexpected argument");
  EXPECT_EQ(ErrorOf({"list", "--simulated", "list"}), "'list': unexpected argument");
}

TEST(Arguments, HelpAndVersionNeedNoCommand) {
  EXPECT_TRUE(Parse({"--help"}).wantsHelp);
  EXPECT_TRUE(Parse({"-h"}).wantsHelp);
  EXPECT_TRUE(Parse({"--version"}).wantsVersion);
  EXPECT_EQ(Parse({"record", "--help"}).command, Command::kRecord);
  EXPECT_TRUE(Parse({"record", "--help"}).wantsHelp);
  EXPECT_EQ(Parse({"--help", "record"}).command, Command::kRecord);
  EXPECT_TRUE(Parse({"record", "--version"}).wantsVersion);
}

TEST(Arguments, HelpAndVersionIgnoreMistakes) {
  for (const Words& mistake :
       {Words{"-o", "x.txt"}, Words{"--skip", "3"}, Words{"--fps", "0"}, Words{"--fps="}, Words{"--bogus"},
        Words{"--json=yes"}, Words{"++"}, Words{"list"}, Words{"-v5"}, Words{"list.record"}}) {
    Words words{"record"};
    words.insert(words.end(), mistake.begin(), mistake.end());
    words.emplace_back("--help");
    EXPECT_TRUE(Parse(words).wantsHelp) << mistake.front();
    EXPECT_EQ(Parse(words).command, Command::kRecord);
    words.back() = "--version";
    EXPECT_TRUE(Parse(words).wantsVersion) << mistake.front();
  }
  EXPECT_EQ(Parse({"--json", "--help", "list"}).command, Command::kList);
  EXPECT_TRUE(Parse({"--help", "record", "--fps"}).wantsHelp);
  EXPECT_TRUE(Parse({"fly", "--help"}).wantsHelp);
  EXPECT_TRUE(Parse({"--simulated", "--help"}, kMinimalSystem).wantsHelp);
  EXPECT_EQ(ErrorOf({"record", "--fps", "--help"}), "--fps must be an integer from 1 to 1000, not '--help'");
}

TEST(Arguments, NumbersMustBeIntegersInRange) {
  for (const char* const good : {"1x1", "65535x65535"}) {
    EXPECT_EQ(ErrorOf({"record", "--size", good}), "");
  }
  for (const char* const bad :
       {"", "x", "640", "640x", "x480", "0x480", "640x0", "65536x1", "1x65536", "-1x5", "+1x5", " 1x5",
        "1x5 ", "1X5", "1x5x5", "0x1x1", "99999999999999999999x1", "1.5x2"}) {
    EXPECT_NE(ErrorOf({"record", "--size", bad}), "") << bad;
  }
  EXPECT_EQ(ErrorOf({"record", "--fps", "1000"}), "");
  EXPECT_EQ(ErrorOf({"record", "--seconds", "86400"}), "");
  EXPECT_EQ(ErrorOf({"snapshot", "--skip", "100000"}), "");
  EXPECT_EQ(Parse({"record", "--fps", "010"}).fps, 10);
  for (const char* const bad : {"0x10", "1e2", "+5", "1'0", "1_0", " 5", "5 ", "", "{}", "[5]"}) {
    EXPECT_NE(ErrorOf({"record", "--fps", bad}), "") << bad;
  }
  EXPECT_EQ(ErrorOf({"record", "--fps", "0"}), "--fps must be an integer from 1 to 1000, not '0'");
  EXPECT_EQ(ErrorOf({"record", "--fps", "1001"}), "--fps must be an integer from 1 to 1000, not '1001'");
  EXPECT_EQ(ErrorOf({"record", "--seconds", "86401"}),
            "--seconds must be an integer from 0 to 86400, not '86401'");
  EXPECT_EQ(ErrorOf({"record", "--seconds", "5s"}), "--seconds must be an integer from 0 to 86400, not '5s'");
  EXPECT_NE(ErrorOf({"snapshot", "--skip", "100001"}), "");
  EXPECT_EQ(Parse({"view", "--port", "65535"}).port, 65535);
  EXPECT_EQ(ErrorOf({"view", "--port", "65536"}), "--port must be an integer from 0 to 65535, not '65536'");
}

TEST(Arguments, UsageErrorsNameTheMistake) {
  EXPECT_THAT(ErrorOf({}), HasSubstr("missing command"));
  EXPECT_THAT(ErrorOf({"-v"}), HasSubstr("missing command"));
  EXPECT_THAT(ErrorOf({"fly"}), HasSubstr("unknown command 'fly'"));
  EXPECT_EQ(ErrorOf({"list", "record"}), "'record': unexpected argument");
  EXPECT_EQ(ErrorOf({"list", "more"}), "'more': unexpected argument");
  EXPECT_EQ(ErrorOf({"list", "--bogus"}), "unknown option '--bogus'");
  EXPECT_EQ(ErrorOf({"list", "-x"}), "unknown option '-x'");
  EXPECT_EQ(ErrorOf({"list", "list"}), "'list': unexpected argument");
  EXPECT_EQ(ErrorOf({"list", "-"}), "'-': unexpected argument");
  EXPECT_EQ(ErrorOf({"list", "-1"}), "unknown option '-1'");
  EXPECT_EQ(ErrorOf({"list", "-v5"}), "unknown option '-v5'");
  EXPECT_EQ(ErrorOf({"list", "-vx"}), "unknown option '-vx'");
  EXPECT_EQ(ErrorOf({"list", "-v=true"}), "unknown option '-v=true'");
  EXPECT_EQ(ErrorOf({"list", "-v-help"}), "unknown option '-v-help'");
  EXPECT_EQ(ErrorOf({"list", "/h"}), "'/h': unexpected argument");
  EXPECT_EQ(ErrorOf({"list", "++"}), "'++': unexpected argument");
  EXPECT_EQ(ErrorOf({"list", ""}), "'': unexpected argument");
  EXPECT_EQ(ErrorOf({"--bogus", "list"}), "unknown option '--bogus'");
  EXPECT_EQ(ErrorOf({"--bogus=5"}), "unknown option '--bogus=5'");
  EXPECT_THAT(ErrorOf({"fly", "list"}), HasSubstr("unknown command 'fly'"));
  EXPECT_EQ(ErrorOf({"list", "--jso"}), "unknown option '--jso'");
  EXPECT_EQ(ErrorOf({"record", "--fps"}), "--fps requires a value");
  EXPECT_EQ(ErrorOf({"record", "--fps="}), "--fps= requires a value");
  EXPECT_EQ(ErrorOf({"record", "--fps=", "30"}), "--fps= requires a value");
  EXPECT_EQ(ErrorOf({"list", "--simulated="}), "--simulated= requires a value");
  EXPECT_THAT(ErrorOf({"record", "-o="}), HasSubstr("unknown output format of '='"));
  EXPECT_EQ(ErrorOf({"record", "-o"}), "-o requires a value");
  EXPECT_EQ(ErrorOf({"record", "-vo"}), "-vo requires a value");
  EXPECT_EQ(ErrorOf({"record", "-o", ""}), "--output requires a file name");
  EXPECT_EQ(ErrorOf({"list", "--library", ""}), "--library requires a file name");
  EXPECT_EQ(ErrorOf({"list", "--simulated", ""}), "--simulated requires a file name");
  for (const char* const value : {"yes", "true", "false", "1", ""}) {
    EXPECT_EQ(ErrorOf({"list", std::string("--json=") + value}), "--json does not take a value");
    EXPECT_EQ(ErrorOf({"list", std::string("--verbose=") + value}), "--verbose does not take a value");
  }
  EXPECT_EQ(ErrorOf({"list", "--fps", "3"}), "--fps is not valid for 'list'");
  EXPECT_EQ(ErrorOf({"doctor", "--fps", "3"}), "--fps is not valid for 'doctor'");
  EXPECT_EQ(ErrorOf({"record", "--skip", "3"}), "--skip is not valid for 'record'");
  EXPECT_EQ(ErrorOf({"snapshot", "--seconds", "3"}), "--seconds is not valid for 'snapshot'");
}

TEST(Arguments, DotsDoNotSeparateCommandsAndOptions) {
  EXPECT_EQ(ErrorOf({"--list.json"}), "unknown option '--list.json'");
  EXPECT_EQ(ErrorOf({"list", "--list.json"}), "unknown option '--list.json'");
  EXPECT_EQ(ErrorOf({"--record.fps=3"}), "unknown option '--record.fps=3'");
  EXPECT_EQ(ErrorOf({"record", "--record.fps", "3"}), "unknown option '--record.fps'");
  EXPECT_THAT(ErrorOf({"list.list"}), HasSubstr("unknown command 'list.list'"));
  EXPECT_EQ(ErrorOf({"list", "list.list"}), "'list.list': unexpected argument");
  EXPECT_EQ(Parse({"list", "--simulated", "list.record"}).clip, "list.record");
}

TEST(Arguments, ControlCharactersAreReplacedInErrors) {
  EXPECT_EQ(ErrorOf({"\x1b[2Jlist"}),
            "unknown command '?[2Jlist'; the commands are list, record, snapshot, doctor, probe and view");
  EXPECT_EQ(ErrorOf({"list", "--a\x1b[2J"}), "unknown option '--a?[2J'");
  EXPECT_EQ(ErrorOf({"list", "\x1b[2J"}), "'?[2J': unexpected argument");
}

TEST(Arguments, ExtensionDeterminesTheOutputFormat) {
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
  EXPECT_THAT(ErrorOf({"record", "-o", "a.avi"}), HasSubstr(".mp4, .h264 or .264"));
  EXPECT_THAT(ErrorOf({"snapshot", "-o", "a.gif"}), HasSubstr(".png"));
}

TEST(Arguments, SimulatedIsRejectedIfNotSupported) {
  for (const Words& words : {Words{"list", "--simulated"}, Words{"--simulated=a.mp4", "snapshot"}}) {
    EXPECT_EQ(ErrorOf(words, kMinimalSystem), "--simulated is not supported on this system");
  }
  EXPECT_EQ(ErrorOf({"list"}, kMinimalSystem), "");
}

TEST(Arguments, ViewIsUnknownIfItIsNotBuilt) {
  EXPECT_EQ(ErrorOf({"view"}, kMinimalSystem),
            "unknown command 'view'; the commands are list, record, snapshot, doctor and probe");
  EXPECT_EQ(ErrorOf({"list", "--port", "1"}, kMinimalSystem), "unknown option '--port'");
  EXPECT_EQ(ErrorOf({}, kMinimalSystem), "missing command: list, record, snapshot, doctor or probe");
}

// Random command lines of meaningful words and concatenations of them: each is either parsed or rejected with
// a message, and parsed options satisfy the invariants that the commands rely on. ArgumentsFuzz tries more.
TEST(Arguments, AnyCommandLineIsEitherParsedOrRejectedWithAMessage) {
  const Words pieces{
      "list",  "record",      "snapshot", "--simulated", "-o",       "--output", "--size",    "640x480",
      "--fps", "--seconds",   "--skip",   "--json",      "-v",       "--help",   "--version", "--library",
      "=",     "x",           "9",        "0",           "-",        "--",       "a.mp4",     "a.png",
      "",      "\xff",        "-o-",      "4294967296",  "doctor",   "++",       "{}",        "-vo",
      "probe", "--all-rates", "view",     "--port",      "--no-open"};
  std::mt19937 random(1);  // NOLINT(cert-msc32-c,cert-msc51-cpp): reproducible
  std::size_t parsedLines = 0;
  for (int line = 0; line < 1000; ++line) {
    Words words;
    for (auto count = random() % 6; count > 0; --count) {
      std::string word = pieces[random() % pieces.size()];
      if (random() % 4 == 0) {
        word += pieces[random() % pieces.size()];
      }
      words.push_back(word);
    }
    const auto parsed = ParseArguments(words, line % 2 == 0 ? kSystem : kMinimalSystem);
    if (const auto* const error = std::get_if<UsageError>(&parsed)) {
      ASSERT_NE(error->text, "");
      ASSERT_EQ(error->text, SanitizeForTerminal(error->text));
      continue;
    }
    ++parsedLines;
    const auto& options = std::get<Options>(parsed);
    ASSERT_TRUE(options.command != Command::kNone || options.wantsHelp || options.wantsVersion);
    if (options.command != Command::kNone && !options.wantsHelp && !options.wantsVersion) {
      ASSERT_EQ(options.output.empty(),
                options.command != Command::kRecord && options.command != Command::kSnapshot);
      ASSERT_TRUE(!options.size || (options.size->width > 0 && options.size->height > 0));
      ASSERT_LE(options.seconds, 86400U);
      ASSERT_LE(options.port, 65535U);
    }
  }
  EXPECT_GT(parsedLines, 50U);
}

}  // namespace
}  // namespace nuveqcam
