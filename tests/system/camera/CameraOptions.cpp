#include "CameraOptions.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <functional>
#include <utility>

namespace uvc {
namespace {

constexpr const char* kDescription =
    R"(uvc_camera: a USB video camera for a virtual machine

Connects to the socket of QEMU's usb-redir device, which plugs the camera in, and streams numbered pictures.
Terminating the program unplugs the camera. The program exits when QEMU closes the socket, or when the camera unplugs
itself.)";

constexpr const char* kNotes =
    R"(Prints "ready" when the camera is plugged in. Exit codes: 0 unplugged, or QEMU closed the socket, 1 error, 2
invalid arguments.

Lines of the log:
  ready                        the camera is plugged in
  stream MJPG 640x480 30 fps   the host started a stream; its frames are numbered from 0
  skipped N                    frame N was not sent, because the host had not fetched the previous frame
  damaged N                    frame N is sent without its second half
  unfinished N                 the stream stopped before the host had fetched all of frame N
  stopped after N frames       the stream stopped; N frames were fetched completely
  brightness N                 the host set the brightness
  reset                        the host reset the camera
  stalled T R value V index I  the camera stalled control request R of request type T (all hexadecimal)
  closed                       QEMU closed the socket
  unplugged                    the camera unplugged itself
If the camera has several functions, the lines of a stream start with "function N: ", counted from 0.)";

template <typename Number>
bool Parse(std::string_view text, Number& number, int base = 10) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  return error == std::errc() && end == text.data() + text.size();
}

// Removes and returns the text in front of the separator, or the whole text if there is no separator.
std::string_view Cut(std::string_view& text, char separator) {
  const std::size_t at = text.find(separator);
  const std::string_view head = text.substr(0, at);
  text.remove_prefix(at == std::string_view::npos ? text.size() : at + 1);
  return head;
}

[[noreturn]] void ThrowUsageError(std::string_view message, std::string_view value) {
  throw UsageError(std::string(message) + ": " + std::string(value));
}

void ParseId(std::string_view text, CameraModel& model) {
  std::string_view rest = text;
  const bool isValid = Parse(Cut(rest, ':'), model.vendor, 16) && Parse(rest, model.product, 16);
  if (!isValid) {
    ThrowUsageError("invalid id", text);
  }
}

void ParseSpeed(std::string_view text, CameraModel& model) {
  if (text != "high" && text != "full") {
    ThrowUsageError("invalid speed", text);
  }
  model.speed = text == "high" ? Speed::kHigh : Speed::kFull;
}

// Text for a string descriptor, whose length field is one byte.
std::string ParseText(std::string_view text) {
  const bool isValid = !text.empty() && text.size() <= 126 &&
                       std::ranges::all_of(text, [](char c) { return c >= ' ' && c <= '~'; });
  if (!isValid) {
    ThrowUsageError("must be 1 to 126 printable ASCII characters", text);
  }
  return std::string(text);
}

bool ParseSide(std::string_view text, std::uint16_t min, std::uint16_t& side) {
  return Parse(text, side) && side >= min && side <= 4096 && side % 2 == 0;
}

void ParseRates(std::string_view text, FrameSize& size) {
  constexpr std::size_t kMaxRates = 16;
  std::string_view rest = text;
  while (!rest.empty()) {
    std::uint32_t rate = 0;
    const bool isValid = Parse(Cut(rest, ','), rate) && rate >= 1 && rate <= 120;
    if (!isValid || std::ranges::count(size.intervals, kUnitsPerSecond / rate) != 0) {
      ThrowUsageError("frame rates must be from 1 to 120 and unique", text);
    }
    size.intervals.push_back(kUnitsPerSecond / rate);
  }
  if (size.intervals.empty() || size.intervals.size() > kMaxRates) {
    ThrowUsageError("must have 1 to 16 frame rates", text);
  }
  size.defaultInterval = size.intervals.front();
  std::ranges::sort(size.intervals);
}

// text: empty, "refuse" or "damage=N".
void ParseFault(std::string_view text, FrameSize& size) {
  std::string_view rest = text;
  const std::string_view fault = Cut(rest, '=');
  size.isRefused = text == "refuse";
  const bool isDamage = fault == "damage" && Parse(rest, size.damage) && size.damage != 0;
  if (!text.empty() && !size.isRefused && !isDamage) {
    ThrowUsageError("a fault must be refuse or damage=N", text);
  }
}

void ParseUnpluggedStream(std::string_view text, CameraModel& model) {
  if (!Parse(text, model.unpluggedStream) || model.unpluggedStream == 0) {
    ThrowUsageError("invalid number of a stream", text);
  }
}

void AddFunction(std::string name, CameraModel& model) {
  const bool isUnique =
      std::ranges::find(model.functions, name, &VideoFunction::name) == model.functions.end();
  if (!isUnique || model.functions.size() == kMaxFunctions) {
    ThrowUsageError("duplicate function, or too many functions", name);
  }
  if (!model.functions.empty() && model.functions.back().formats.empty()) {
    ThrowUsageError("the function has no format", model.functions.back().name);
  }
  model.functions.push_back({std::move(name), {}});
}

void ParseFormat(std::string_view text, CameraModel& model) {
  constexpr std::size_t kMaxSizes = 32;
  std::string_view rest = text;
  const PixelFormat* const pixels = FindPixelFormat(Cut(rest, ':'));
  FrameSize size;
  const bool isValid = pixels != nullptr && ParseSide(Cut(rest, 'x'), 64, size.width) &&
                       ParseSide(Cut(rest, '@'), 48, size.height);
  if (!isValid) {
    ThrowUsageError("format must be like MJPG:640x480@30,15, with an even size from 64x48 to 4096x4096",
                    text);
  }
  ParseRates(Cut(rest, ':'), size);
  ParseFault(rest, size);
  if (model.functions.empty()) {
    AddFunction("", model);
  }
  std::vector<StreamFormat>& formats = model.functions.back().formats;
  auto format = std::ranges::find(formats, pixels->fourCc, &StreamFormat::fourCc);
  if (format == formats.end()) {
    formats.push_back({pixels->fourCc, {}});
    format = formats.end() - 1;
  }
  const bool isNew = std::ranges::none_of(format->sizes, [&](const FrameSize& other) {
    return other.width == size.width && other.height == size.height;
  });
  if (!isNew || format->sizes.size() == kMaxSizes) {
    ThrowUsageError("duplicate size, or too many sizes", text);
  }
  format->sizes.push_back(std::move(size));
}

void ApplyDefaults(CameraModel& model) {
  if (model.functions.empty()) {
    for (const std::string_view format : {"YUYV:640x480@30,15", "YUYV:320x240@30,15", "MJPG:1280x720@30,15",
                                          "MJPG:640x480@30,15", "MJPG:320x240@30,15"}) {
      ParseFormat(format, model);
    }
  }
  if (model.functions.back().formats.empty()) {
    ThrowUsageError("the function has no format", model.functions.back().name);
  }
  if (model.functions.front().name.empty()) {
    model.functions.front().name = model.name;
  }
}

void AddOptions(CLI::App& app, Options& options) {
  // Called in the order of the command line: a format belongs to the function before it.
  const auto add = [&](const std::string& name, const std::string& valueName,
                       const std::function<void(const std::string&)>& apply, const std::string& description) {
    return app.add_option_function<std::string>(name, apply, description)
        ->type_name(valueName)
        ->take_last()
        ->trigger_on_parse();
  };
  CameraModel& model = options.model;
  add(
      "--socket", "PATH", [&](const std::string& path) { options.socket = path; },
      "Unix socket on which QEMU listens; waits up to 15 seconds for it")
      ->required();
  const auto setLog = [&](const std::string& file) { options.log = file; };
  add("--log", "FILE", setLog, "log events to FILE");
  add(
      "--speed", "SPEED", [&](const std::string& speed) { ParseSpeed(speed, model); },
      "high or full (default: high)");
  add(
      "--id", "VVVV:PPPP", [&](const std::string& id) { ParseId(id, model); },
      "vendor and product id, hexadecimal (default: 04f2:b6be)");
  add(
      "--product", "TEXT", [&](const std::string& text) { model.name = ParseText(text); },
      "product name (default: \"Integrated Camera\")");
  add(
      "--serial", "TEXT", [&](const std::string& text) { model.serial = ParseText(text); },
      "serial number (default: \"0001\")");
  add(
      "--function", "TEXT", [&](const std::string& text) { AddFunction(ParseText(text), model); },
      "add a video function with this name; the formats that follow\n"
      "belong to it. At most four; by default the camera has one\n"
      "function with the product's name");
  add(
      "--format", "FORMAT:WIDTHxHEIGHT@RATE[,RATE...][:FAULT]",
      [&](const std::string& format) { ParseFormat(format, model); },
      "add a frame size with its frame rates, the default rate first;\n"
      "may be repeated. FORMAT is YUYV, UYVY, NV12, GREY, MJPG or H264;\n"
      "H264 is offered but cannot be started. FAULT is refuse (the size\n"
      "cannot be started) or damage=N (every N-th frame lacks its second\n"
      "half)");
  add(
      "--unplug", "N", [&](const std::string& stream) { ParseUnpluggedStream(stream, model); },
      "unplug the camera in its N-th stream, counted from 1, after 10 frames");
  app.add_flag_callback(
      "--no-eoi", [&] { model.hasEndOfImage = false; }, "omit the EOI marker at the end of MJPG frames");
  app.set_help_flag("--help", "print this text");
}

}  // namespace

Options ParseOptions(std::span<const std::string_view> arguments) {
  Options options;
  CLI::App app(kDescription, "uvc_camera");
  AddOptions(app, options);
  app.footer(kNotes);
  try {
    app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
  } catch (const CLI::CallForHelp&) {
    options.help = app.help();
    return options;
  } catch (const CLI::ParseError& error) {
    throw UsageError(error.what());
  }
  ApplyDefaults(options.model);
  return options;
}

}  // namespace uvc
