#include "CameraOptions.h"

#include <algorithm>
#include <charconv>
#include <functional>
#include <limits>
#include <map>
#include <utility>

namespace uvc {
namespace {

constexpr std::string_view kHelp =
    R"(uvc_camera: a USB video camera for a virtual machine

It plugs itself into QEMU's usb-redir device, whose socket has to be listening, and delivers the numbered
picture. It is unplugged by ending it; it ends by itself when the machine does.

  --socket PATH     the unix socket at which QEMU listens; waits some seconds for it
  --log FILE        writes what happens to FILE
  --speed SPEED     high (as without it) or full
  --id VVVV:PPPP    vendor and product, hexadecimal; 04f2:b6be without it
  --product TEXT    the product's name; "Integrated Camera" without it
  --serial TEXT     the serial number; "0001" without it
  --function TEXT   begins a video function of that name, to which the formats that follow belong; at most
                    four. Without it the camera has one function, named like the product
  --format FORMAT:WIDTHxHEIGHT@RATE[,RATE...]
                    a size with its frame rates, the default one first; any number of times. FORMAT is YUYV,
                    UYVY, NV12, GREY, MJPG or H264; H264 is offered and cannot be started
  --no-eoi          MJPG frames end without the EOI marker
  --help            this text

It prints "ready" once it is plugged in. Exit codes: 0 ended by a signal or by QEMU, 1 failed, 2 wrong
arguments.

Lines of the log:
  ready                        the camera is plugged in
  stream MJPG 640x480 30 fps   the host has started a stream; its pictures are numbered from 0
  skipped N                    the picture of that number was never sent: the one before it had not been taken
  unfinished N                 the stream stopped while that picture had not been taken wholly
  stopped after N frames       how many pictures the host took wholly
  brightness N                 the host has set the brightness
  reset                        the host has reset the camera
  stalled T R value V index I  the camera has refused a control request of that type and number (hexadecimal)
  closed                       QEMU has closed the socket
A camera with several functions begins lines other than ready, reset, stalled and closed with
"function N: ", counted from 0.
)";

template <typename Number>
bool Parse(std::string_view text, Number& number, int base = 10) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  return error == std::errc() && end == text.data() + text.size();
}

// Cuts the text up to the separator off; all of it when there is none.
std::string_view Cut(std::string_view& text, char separator) {
  const std::size_t at = text.find(separator);
  const std::string_view head = text.substr(0, at);
  text.remove_prefix(at == std::string_view::npos ? text.size() : at + 1);
  return head;
}

[[noreturn]] void Refuse(std::string_view what, std::string_view value) {
  throw UsageError(std::string(what) + ": " + std::string(value));
}

void ParseId(std::string_view text, CameraModel& model) {
  std::string_view rest = text;
  const bool isGood = Parse(Cut(rest, ':'), model.vendor, 16) && Parse(rest, model.product, 16);
  if (!isGood) {
    Refuse("no such identity", text);
  }
}

void ParseSpeed(std::string_view text, CameraModel& model) {
  if (text != "high" && text != "full") {
    Refuse("no such speed", text);
  }
  model.speed = text == "high" ? Speed::kHigh : Speed::kFull;
}

// For a string descriptor, whose length is one byte.
std::string ParseText(std::string_view text) {
  const bool isGood = !text.empty() && text.size() <= 126 &&
                      std::ranges::all_of(text, [](char c) { return c >= ' ' && c <= '~'; });
  if (!isGood) {
    Refuse("no text of printable ASCII characters", text);
  }
  return std::string(text);
}

bool ParseSide(std::string_view text, std::uint16_t least, std::uint16_t& side) {
  return Parse(text, side) && side >= least && side <= 4096 && side % 2 == 0;
}

void ParseRates(std::string_view text, FrameSize& size) {
  constexpr std::size_t kMostRates = 16;
  std::string_view rest = text;
  while (!rest.empty()) {
    std::uint32_t rate = 0;
    const bool isGood = Parse(Cut(rest, ','), rate) && rate >= 1 && rate <= 120;
    if (!isGood || std::ranges::count(size.intervals, kUnitsInSecond / rate) != 0) {
      Refuse("no frame rates from 1 to 120, each once", text);
    }
    size.intervals.push_back(kUnitsInSecond / rate);
  }
  if (size.intervals.empty() || size.intervals.size() > kMostRates) {
    Refuse("no list of 1 to 16 frame rates", text);
  }
  size.defaultInterval = size.intervals.front();
  std::ranges::sort(size.intervals);
}

void AddFunction(std::string name, CameraModel& model) {
  const bool isUnique =
      std::ranges::find(model.functions, name, &VideoFunction::name) == model.functions.end();
  if (!isUnique || model.functions.size() == kMaxFunctions) {
    Refuse("the function is a duplicate, or there are too many", name);
  }
  if (!model.functions.empty() && model.functions.back().formats.empty()) {
    Refuse("the function has no format", model.functions.back().name);
  }
  model.functions.push_back({std::move(name), {}});
}

void ParseFormat(std::string_view text, CameraModel& model) {
  constexpr std::size_t kMostSizes = 32;
  std::string_view rest = text;
  const PixelFormat* const pixels = FindPixelFormat(Cut(rest, ':'));
  FrameSize size;
  const bool isGood = pixels != nullptr && ParseSide(Cut(rest, 'x'), 64, size.width) &&
                      ParseSide(Cut(rest, '@'), 48, size.height);
  if (!isGood) {
    Refuse("no format such as MJPG:640x480@30,15 with even sides of 64x48 to 4096x4096 pixels", text);
  }
  ParseRates(rest, size);
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
  if (!isNew || format->sizes.size() == kMostSizes) {
    Refuse("the size has been given before, or there are too many", text);
  }
  format->sizes.push_back(std::move(size));
}

// What was not given.
void FillIn(CameraModel& model) {
  if (model.functions.empty()) {
    for (const std::string_view format : {"YUYV:640x480@30,15", "YUYV:320x240@30,15", "MJPG:1280x720@30,15",
                                          "MJPG:640x480@30,15", "MJPG:320x240@30,15"}) {
      ParseFormat(format, model);
    }
  }
  if (model.functions.back().formats.empty()) {
    Refuse("the function has no format", model.functions.back().name);
  }
  if (model.functions.front().name.empty()) {
    model.functions.front().name = model.name;
  }
}

using Setter = std::function<void(Options&, std::string_view)>;

const std::map<std::string_view, Setter>& Setters() {
  static const std::map<std::string_view, Setter> setters{
      {"--socket", [](Options& options, std::string_view value) { options.socket = value; }},
      {"--log", [](Options& options, std::string_view value) { options.log = value; }},
      {"--speed", [](Options& options, std::string_view value) { ParseSpeed(value, options.model); }},
      {"--id", [](Options& options, std::string_view value) { ParseId(value, options.model); }},
      {"--product", [](Options& options, std::string_view value) { options.model.name = ParseText(value); }},
      {"--serial", [](Options& options, std::string_view value) { options.model.serial = ParseText(value); }},
      {"--function",
       [](Options& options, std::string_view value) { AddFunction(ParseText(value), options.model); }},
      {"--format", [](Options& options, std::string_view value) { ParseFormat(value, options.model); }}};
  return setters;
}

}  // namespace

Options ParseOptions(std::span<const std::string_view> arguments) {
  Options options;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    if (arguments[i] == "--help") {
      options.wantsHelp = true;
      return options;
    }
    if (arguments[i] == "--no-eoi") {
      options.model.hasEndOfImage = false;
      continue;
    }
    const auto setter = Setters().find(arguments[i]);
    if (setter == Setters().end()) {
      Refuse("no such option", arguments[i]);
    }
    if (i + 1 == arguments.size()) {
      Refuse("a value is missing", arguments[i]);
    }
    setter->second(options, arguments[++i]);
  }
  if (options.socket.empty()) {
    throw UsageError("--socket is missing");
  }
  FillIn(options.model);
  return options;
}

std::string_view HelpText() { return kHelp; }

}  // namespace uvc
