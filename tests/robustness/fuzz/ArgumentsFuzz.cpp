// Command lines made of bytes, through nuveqcam's parser: options in their ranges or a mistake in words, and
// options that are written out read as themselves.
#include <algorithm>
#include <string>
#include <vector>

#include "Require.h"
#include "cli/Arguments.h"
#include "recording/OutputKind.h"

namespace {

using Words = std::vector<std::string>;

constexpr SystemTraits kWhole{.recordsMp4 = true, .hasSimulatedPc = true};
constexpr SystemTraits kPlain{};

// One word a line.
Words WordsOf(const std::uint8_t* data, std::size_t size) {
  Words words;
  const std::uint8_t* const end = data + size;
  for (const std::uint8_t* at = data; at < end;) {
    const std::uint8_t* const next = std::find(at, end, '\n');
    words.emplace_back(at, next);
    at = next + (next == end ? 0 : 1);
  }
  return words;
}

void RequireInRange(const Options& options) {
  if (options.size) {
    Require(options.size->width >= 1 && options.size->width <= 65535 && options.size->height >= 1 &&
                options.size->height <= 65535,
            "sizes are in their range");
  }
  Require(!options.fps || (*options.fps >= 1 && *options.fps <= 1000), "rates are in their range");
  Require(options.seconds <= 86400, "seconds are in their range");
  Require(options.skip <= 100000, "pictures to skip are in their range");
}

void RequireUsable(const Options& options, const SystemTraits& system) {
  Require(options.command != Command::kNone, "there is a command");
  Require(system.hasSimulatedPc || !options.isSimulated, "what is simulated can be");
  if (options.command == Command::kRecord) {
    const OutputKind kind = KindOfRecording(options.output);
    Require(kind == OutputKind::kRawH264 || (kind == OutputKind::kMp4 && system.recordsMp4),
            "the recording's name says what it is", options.output);
  }
  if (options.command == Command::kSnapshot) {
    Require(KindOfPicture(options.output) == OutputKind::kPng, "the picture's name says what it is",
            options.output);
  }
}

// The options as a careful person would write them.
Words Written(const Options& options) {
  Words words = {NameOf(options.command)};
  const auto add = [&](bool isGiven, const std::string& word) {
    if (isGiven) {
      words.push_back(word);
    }
  };
  add(options.isVerbose, "-v");
  add(options.isSimulated, options.clip.empty() ? "--simulated" : "--simulated=" + options.clip);
  add(!options.library.empty(), "--library=" + options.library);
  add(options.wantsJson, "--json");
  add(!options.output.empty(), "--output=" + options.output);
  if (options.size) {
    add(true, "--size=" + std::to_string(options.size->width) + "x" + std::to_string(options.size->height));
  }
  if (options.fps) {
    add(true, "--fps=" + std::to_string(*options.fps));
  }
  add(options.command == Command::kRecord, "--seconds=" + std::to_string(options.seconds));
  add(options.command == Command::kSnapshot, "--skip=" + std::to_string(options.skip));
  return words;
}

bool AreAlike(const Options& a, const Options& b) {
  const bool hasSameSize = a.size.has_value() == b.size.has_value() &&
                           (!a.size || (a.size->width == b.size->width && a.size->height == b.size->height));
  return a.command == b.command && a.isSimulated == b.isSimulated && a.clip == b.clip &&
         a.isVerbose == b.isVerbose && a.library == b.library && a.wantsJson == b.wantsJson &&
         a.output == b.output && hasSameSize && a.fps == b.fps && a.seconds == b.seconds && a.skip == b.skip;
}

void RequireReadable(const UsageError& wrong) {
  Require(!wrong.text.empty(), "a mistake is named");
  const bool steers = std::any_of(wrong.text.begin(), wrong.text.end(),
                                  [](char c) { return (c >= 0 && c < ' ') || c == 0x7F; });
  Require(!steers, "what is said of a mistake cannot steer a terminal", wrong.text);
}

void Read(const Words& words, const SystemTraits& system) {
  const auto parsed = ParseArguments(words, system);
  if (const auto* const wrong = std::get_if<UsageError>(&parsed)) {
    RequireReadable(*wrong);
    return;
  }
  const auto& options = std::get<Options>(parsed);
  RequireInRange(options);
  if (options.wantsHelp || options.wantsVersion) {
    return;
  }
  RequireUsable(options, system);
  const auto again = ParseArguments(Written(options), system);
  const auto* const same = std::get_if<Options>(&again);
  Require(same != nullptr && AreAlike(*same, options), "options read as they are written",
          same == nullptr ? std::get<UsageError>(again).text : "");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Words words = WordsOf(data, size);
  Read(words, kWhole);
  Read(words, kPlain);
  return 0;
}
