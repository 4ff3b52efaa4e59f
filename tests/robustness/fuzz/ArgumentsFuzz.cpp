// Fuzzes the command-line parser of nuveqcam. It returns options within their ranges or a readable error, and
// options survive a round trip through a command line.
#include <algorithm>
#include <string>
#include <vector>

#include "Require.h"
#include "cli/Arguments.h"
#include "recording/OutputKind.h"

namespace fuzz {
namespace {

using namespace nuveqcam;  // NOLINT(google-build-using-namespace)

using Words = std::vector<std::string>;

constexpr SystemTraits kAllFeatures{.hasSimulatedPc = true, .hasView = true};
constexpr SystemTraits kNoFeatures{};

// Splits the input into arguments, one per line.
Words SplitLines(const std::uint8_t* data, std::size_t size) {
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
            "width and height are in range");
  }
  Require(!options.fps || (*options.fps >= 1 && *options.fps <= 1000), "the frame rate is in range");
  Require(options.seconds <= 86400, "the duration is in range");
  Require(options.skip <= 100000, "the number of skipped pictures is in range");
  Require(options.port <= 65535, "the port is in range");
  Require(options.probeSeconds >= 1 && options.probeSeconds <= 60, "the duration of a probe is in range");
}

void RequireSupported(const Options& options, const SystemTraits& system) {
  Require(options.command != Command::kNone, "a command is set");
  Require(system.hasSimulatedPc || !options.isSimulated, "simulation is accepted only where it is supported");
  Require(system.hasView || options.command != Command::kView, "view is accepted only where it is built");
  if (options.command == Command::kRecord) {
    const OutputKind kind = KindOfRecording(options.output);
    Require(kind == OutputKind::kRawH264 || kind == OutputKind::kMp4,
            "the recording has a supported file name extension", options.output);
  }
  if (options.command == Command::kSnapshot) {
    Require(KindOfPicture(options.output) == OutputKind::kPng,
            "the picture has a supported file name extension", options.output);
  }
}

// Writes the options as a canonical command line.
Words ToCommandLine(const Options& options) {
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
  add(options.command == Command::kView, "--port=" + std::to_string(options.port));
  add(!options.opensBrowser, "--no-open");
  add(options.keepsCameraOpen, "--keep-open");
  add(options.command == Command::kSnapshot, "--skip=" + std::to_string(options.skip));
  add(options.command == Command::kProbe, "--seconds=" + std::to_string(options.probeSeconds));
  add(options.wantsAllRates, "--all-rates");
  return words;
}

bool AreEqual(const Options& a, const Options& b) {
  const bool hasSameSize = a.size.has_value() == b.size.has_value() &&
                           (!a.size || (a.size->width == b.size->width && a.size->height == b.size->height));
  return a.command == b.command && a.isSimulated == b.isSimulated && a.clip == b.clip &&
         a.isVerbose == b.isVerbose && a.library == b.library && a.wantsJson == b.wantsJson &&
         a.output == b.output && hasSameSize && a.fps == b.fps && a.seconds == b.seconds &&
         a.skip == b.skip && a.port == b.port && a.opensBrowser == b.opensBrowser &&
         a.keepsCameraOpen == b.keepsCameraOpen && a.probeSeconds == b.probeSeconds &&
         a.wantsAllRates == b.wantsAllRates;
}

void RequireReadable(const UsageError& error) {
  Require(!error.text.empty(), "an error has a message");
  const bool hasControlCharacter = std::any_of(error.text.begin(), error.text.end(),
                                               [](char c) { return (c >= 0 && c < ' ') || c == 0x7F; });
  Require(!hasControlCharacter, "an error message contains no control characters", error.text);
}

void TestParser(const Words& words, const SystemTraits& system) {
  const auto parsed = ParseArguments(words, system);
  if (const auto* const error = std::get_if<UsageError>(&parsed)) {
    RequireReadable(*error);
    return;
  }
  const auto& options = std::get<Options>(parsed);
  RequireInRange(options);
  if (options.wantsHelp || options.wantsVersion) {
    return;
  }
  RequireSupported(options, system);
  const auto again = ParseArguments(ToCommandLine(options), system);
  const auto* const same = std::get_if<Options>(&again);
  Require(same != nullptr && AreEqual(*same, options), "options survive a round trip",
          same == nullptr ? std::get<UsageError>(again).text : "");
}

}  // namespace
}  // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const fuzz::Words words = fuzz::SplitLines(data, size);
  fuzz::TestParser(words, fuzz::kAllFeatures);
  fuzz::TestParser(words, fuzz::kNoFeatures);
  return 0;
}
