#include "cli/CommandLine.h"

#include <array>
#include <charconv>
#include <functional>
#include <string_view>

#include "cli/Text.h"
#include "recording/OutputKind.h"

namespace nuveqcam {
namespace {

struct Range {
  std::uint32_t min;
  std::uint32_t max;
};

constexpr Range kSizeRange{1, 65535};
constexpr Range kFpsRange{1, 1000};
constexpr Range kSecondsRange{0, 86400};
constexpr Range kSkipRange{0, 100000};
// A measurement keeps its packets in memory.
constexpr Range kProbeSecondsRange{1, 60};
constexpr Range kPortRange{0, 65535};

// "1 to 1000"
std::string ToText(Range range) { return std::to_string(range.min) + " to " + std::to_string(range.max); }

std::uint32_t ParseNumber(const std::string& option, std::string_view text, Range range) {
  std::uint32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc{} || end != text.data() + text.size() || number < range.min || number > range.max) {
    throw UsageError{option + " must be an integer from " + ToText(range) + ", not '" +
                     SanitizeForTerminal(text) + "'"};
  }
  return number;
}

Size ParseSize(std::string_view text) {
  const std::size_t cross = text.find('x');
  if (cross == std::string_view::npos) {
    throw UsageError{"--size must be WIDTHxHEIGHT, for example 1280x720, not '" + SanitizeForTerminal(text) +
                     "'"};
  }
  return {ParseNumber("the width of --size", text.substr(0, cross), kSizeRange),
          ParseNumber("the height of --size", text.substr(cross + 1), kSizeRange)};
}

CLI::Option* AddValue(CLI::App& app, const std::string& names, const char* valueName,
                      const std::string& description, const std::function<void(const std::string&)>& apply) {
  return app.add_option_function<std::string>(names, apply, description)->type_name(valueName);
}

// Number: std::uint32_t or an optional one.
template <typename Number>
void AddNumber(CLI::App& app, const std::string& name, const char* valueName, Number& number, Range range,
               const std::string& description) {
  AddValue(app, name, valueName, description,
           [&number, name, range](const std::string& value) { number = ParseNumber(name, value, range); });
}

void AddFileName(CLI::App& app, const std::string& shortName, const std::string& name, std::string& fileName,
                 const std::string& description) {
  AddValue(app, shortName + name, "FILE", description, [&fileName, name](const std::string& value) {
    if (value.empty()) {
      throw UsageError{name + " requires a file name"};
    }
    fileName = value;
  });
}

void AddJson(CLI::App& app, Options& options, const char* members) {
  app.add_flag("--json", options.wantsJson, members);
}

// "65535x65535"
std::string SizeToText(std::uint32_t side) { return std::to_string(side) + "x" + std::to_string(side); }

void AddSize(CLI::App& app, Options& options) {
  AddValue(app, "--size", "WxH",
           "picture size in pixels, " + SizeToText(kSizeRange.min) + " to " + SizeToText(kSizeRange.max) +
               " (default: the largest size up to 1280x720 that delivers the frame rate)",
           [&options](const std::string& value) { options.size = ParseSize(value); });
}

void AddFps(CLI::App& app, Options& options) {
  AddNumber(app, "--fps", "N", options.fps, kFpsRange,
            "frames per second, " + ToText(kFpsRange) +
                " (default: 30 if offered, else the highest lower rate, else the lowest)");
}

// An output whose file name determines its format.
void AddOutput(CLI::App& app, Options& options, const char* defaultName,
               OutputKind (*kindOf)(const std::string&), const char* extensions, const char* description) {
  AddFileName(app, "-o,", "--output", options.output,
              std::string(description) + "\n(default: " + defaultName + ")");
  app.callback([&options, defaultName, kindOf, extensions] {
    if (options.output.empty()) {
      options.output = defaultName;
    }
    if (kindOf(options.output) == OutputKind::kUnknown) {
      throw UsageError{"unknown output format of '" + SanitizeForTerminal(options.output) + "'; " +
                       extensions};
    }
  });
}

void AddListOptions(CLI::App& app, Options& options) {
  AddJson(app, options,
          "print one JSON object on one line:\n"
          "  cameras  empty or [{id, sizes: [{width, height}],\n"
          "           rates: [frames per second]}]\n"
          "  devices  [{name, node, builtIn, reason}]\n"
          "also printed if there is no camera (exit code 3)");
}

void AddRecordOptions(CLI::App& app, Options& options) {
  AddOutput(
      app, options, "camera.mp4", &KindOfRecording, "the extension of a recording is .mp4, .h264 or .264",
      "output file: .mp4, or .h264 or .264 for the plain stream (Annex B); - writes the plain stream to "
      "standard output");
  AddSize(app, options);
  AddFps(app, options);
  AddNumber(app, "--seconds", "S", options.seconds, kSecondsRange,
            "duration, up to " + std::to_string(kSecondsRange.max) +
                "; 0: until Ctrl-C (default: " + std::to_string(options.seconds) + ")");
}

void AddSnapshotOptions(CLI::App& app, Options& options) {
  AddOutput(app, options, "camera.png", &KindOfPicture, "the extension of a picture is .png",
            "output file: .png, or - for standard output");
  AddSize(app, options);
  AddNumber(app, "--skip", "N", options.skip, kSkipRange,
            "number of pictures to skip, up to " + std::to_string(kSkipRange.max) +
                ", while the camera adjusts its exposure (default: " + std::to_string(options.skip) + ")");
}

void AddViewOptions(CLI::App& app, Options& options) {
  AddSize(app, options);
  AddFps(app, options);
  AddNumber(app, "--port", "N", options.port, kPortRange,
            "port to listen on, " + ToText(kPortRange) +
                "; 0: any free one (default: " + std::to_string(options.port) + ")");
  app.add_flag_callback(
      "--no-open", [&options] { options.opensBrowser = false; }, "do not open the browser");
  app.add_flag("--keep-open", options.keepsCameraOpen, "keep the camera open while nobody looks or records");
  AddJson(app, options,
          "print one JSON object on one line instead of text:\n"
          "  address  of the page");
}

void AddDoctorOptions(CLI::App& app, Options& options) {
  AddJson(app, options,
          "print one JSON object on one line:\n"
          "  offered, conclusion, advice: [line], failure,\n"
          "  camera   null or as in list\n"
          "  usbDevices      [{place, name, model, id, hub, video,\n"
          "                  removable, verdictFrom, verdict,\n"
          "                  connectType, attribute, verdictHub,\n"
          "                  firstFunction}]\n"
          "  captureDevices  [{taken, node, name, usbDevice, reason,\n"
          "                  openError, openIn}]\n"
          "  otherNodes      as captureDevices, without taken");
}

void AddProbeOptions(CLI::App& app, Options& options) {
  AddJson(app, options,
          "print one JSON object on one line:\n"
          "  version, ok, complete, seconds, name, node,\n"
          "  camera   null or as in list\n"
          "  sizes    [{width, height, asked, listed, delivered,\n"
          "           firstPacketMedian, firstPacketWorst, jitterP99,\n"
          "           missed, damaged, bitRate, largestPacket,\n"
          "           cpuPerFrame, packets, pictureWidth,\n"
          "           pictureHeight, faultyPackets, packetFault,\n"
          "           failure, findings: [word]}]\n"
          "  checks   [{check, fault}]\n"
          "  best     null or {width, height, asked}\n"
          "  advice   [line]\n"
          "also printed if there is no camera (exit code 3)");
  AddNumber(app, "--seconds", "S", options.probeSeconds, kProbeSecondsRange,
            "duration of the measurement of each size, " + ToText(kProbeSecondsRange) +
                " (default: " + std::to_string(options.probeSeconds) + ")");
  app.add_flag("--all-rates", options.wantsAllRates,
               "measure each size at every rate (default: at its highest rate only)");
}

// To add a command, add it here, its member to Options, and its function to Commands.h.
constexpr std::array kCommands{
    CommandDefinition{Command::kList, "list", "show the camera, its picture sizes and frame rates",
                      "Shows the PC's built-in camera with its picture sizes and frame rates, and the other "
                      "capture devices "
                      "with the reason why they are not offered.",
                      AddListOptions, ""},
    CommandDefinition{
        Command::kRecord, "record", "record H.264 video",
        "Records H.264 video. Ctrl-C ends a recording early and completes the file; a second Ctrl-C ends the "
        "program immediately. If the camera stops early, the recording is kept and the exit code is 6.",
        AddRecordOptions, ""},
    CommandDefinition{Command::kSnapshot, "snapshot", "take one picture", "Takes one picture.",
                      AddSnapshotOptions, ""},
    CommandDefinition{
        Command::kDoctor, "doctor", "show which camera is selected, and why the others are not",
        "Shows whether each USB device is removable and which source says so, why each capture device is or "
        "is not selected, and finally the offered camera, or why there is none and what to do about it.",
        AddDoctorOptions,
        "The exit code is 0 if a camera is offered, 3 if there is none, and 4 if there is one that cannot be "
        "read. None of these prints an error message. 'nuveqcam probe' measures the camera."},
    CommandDefinition{
        Command::kProbe, "probe", "measure what each picture size delivers",
        "Opens every picture size three times and measures its frame rate, the time to its first packet, its "
        "jitter, lost frames, bit rate and CPU time; checks that every packet is a whole picture; and checks "
        "that the camera opens and closes as documented. The last lines name the best size and rate, and "
        "what is wrong. Ctrl-C ends it early and prints what is known.",
        AddProbeOptions,
        "The exit code is 0 if every size can be opened and delivers its rate within 10 %, every packet is a "
        "whole picture, and every check succeeds; 7 if not; 6 if it was ended early without a fault."},
    // The last one, because it may be missing.
    CommandDefinition{Command::kView, "view", "show the camera live in the browser",
                      "Shows the camera live on a page in the browser, where pictures can be taken and "
                      "recordings made. Prints the page's address and opens it. Ctrl-C ends the program.",
                      AddViewOptions,
                      "The page can only be reached from this computer and with the address. The camera runs "
                      "while the page is open. Other programs can play the address followed by "
                      "stream.h264 or stream.mp4."}};

void AddGlobalOptions(CLI::App& tool, Options& options, const SystemTraits& system) {
  const bool hasSimulatedPc = system.hasSimulatedPc;
  CLI::Option* const simulated =
      AddValue(tool, "--simulated", "[CLIP]",
               "use a simulated PC instead of this one; its camera plays CLIP, a video file, or a generated "
               "picture",
               [&options, hasSimulatedPc](const std::string& clip) {
                 if (!hasSimulatedPc) {
                   throw UsageError{"--simulated is not supported on this system"};
                 }
                 options.isSimulated = true;
                 options.clip = clip;
               })
          ->expected(0, 1);
  if (!hasSimulatedPc) {
    simulated->group("");
  }
  tool.add_flag("-v,--verbose", options.isVerbose,
                "print the camera library's log to standard error, and no progress line");
  AddFileName(tool, "", "--library", options.library,
              std::string("camera library to load\n(default: ") + system.libraryFile + " " +
                  system.librarySearchPlaces + ")");
  // Set before the values of other options are checked.
  tool.add_flag("-h,--help", options.wantsHelp, "print this text")->trigger_on_parse();
  tool.add_flag("--version", options.wantsVersion, "print the versions of nuveqcam and of its libraries")
      ->trigger_on_parse();
}

void AddCommand(CommandLine& line, const CommandDefinition& definition) {
  CLI::App* const app = line.tool.add_subcommand(definition.name, definition.summary);
  app->preparse_callback([&options = line.options, &definition](std::size_t /*remainingWords*/) {
    options.command = definition.command;
  });
  definition.addOptions(*app, line.options);
}

}  // namespace

std::span<const CommandDefinition> CommandDefinitions(const SystemTraits& system) {
  return std::span(kCommands).first(kCommands.size() - (system.hasView ? 0 : 1));
}

CommandLine::CommandLine(const SystemTraits& system) : commands(CommandDefinitions(system)) {
  // The commands inherit these settings.
  tool.set_help_flag();
  tool.fallthrough();
  tool.allow_extras();
  tool.option_defaults()->take_last();
  AddGlobalOptions(tool, options, system);
  for (const CommandDefinition& definition : commands) {
    AddCommand(*this, definition);
  }
}

}  // namespace nuveqcam
