#include <algorithm>
#include <ostream>

#include "cli/Json.h"
#include "cli/Text.h"
#include "commands/Commands.h"

namespace {

std::string JsonDevice(const CaptureDeviceInfo& device) {
  const std::string reason = device.exclusionReason.empty() ? "null" : JsonString(device.exclusionReason);
  return "{\"name\":" + JsonString(device.name) + ",\"node\":" + JsonString(device.where) +
         ",\"builtIn\":" + (device.exclusionReason.empty() ? "true" : "false") + ",\"reason\":" + reason +
         "}";
}

// A column as wide as its widest entry.
template <typename Get>
std::size_t WidthOf(const std::vector<CaptureDeviceInfo>& seen, const Get& get) {
  std::size_t width = 0;
  for (const CaptureDeviceInfo& device : seen) {
    width = std::max(width,
                     device.exclusionReason.empty() ? 0 : CodePointCount(SanitizeForTerminal(get(device))));
  }
  return width;
}

std::string OtherDevices(const std::vector<CaptureDeviceInfo>& seen) {
  const auto where = [](const CaptureDeviceInfo& device) { return device.where; };
  const auto name = [](const CaptureDeviceInfo& device) { return device.name; };
  std::string text;
  for (const CaptureDeviceInfo& device : seen) {
    if (!device.exclusionReason.empty()) {
      text += "  " + PadRight(SanitizeForTerminal(where(device)), WidthOf(seen, where)) + "  " +
              PadRight(SanitizeForTerminal(name(device)), WidthOf(seen, name)) + "  " +
              SanitizeForTerminal(device.exclusionReason) + "\n";
    }
  }
  return text.empty() ? "" : "\nOther capture devices, not offered:\n" + text;
}

// The points stand below each other.
std::string RateLines(const std::vector<std::uint32_t>& rates, std::string head) {
  const auto wholeOf = [](const std::string& rate) { return std::min(rate.find('.'), rate.size()); };
  std::size_t decimals = 0;
  for (const std::uint32_t rate : rates) {
    const std::string text = RateText(rate);
    decimals = std::max(decimals, text.size() - wholeOf(text));
  }
  std::string lines;
  for (const std::uint32_t rate : rates) {
    const std::string text = RateText(rate);
    const std::size_t whole = wholeOf(text);
    lines += head + PadLeft(text.substr(0, whole), 5) + PadRight(text.substr(whole), decimals) + " fps\n";
    head.assign(head.size(), ' ');
  }
  return lines;
}

}  // namespace

std::string CameraJson(const Capabilities& camera) {
  const std::string sizes = JsonArray(camera.sizes, [](const Size& size) {
    return "{\"width\":" + std::to_string(size.width) + ",\"height\":" + std::to_string(size.height) + "}";
  });
  const std::string rates = JsonArray(camera.rates, RateText);
  return "{\"id\":" + JsonString(camera.id) + ",\"sizes\":" + sizes + ",\"rates\":" + rates + "}";
}

std::string ListText(const Capabilities& camera, const std::vector<CaptureDeviceInfo>& seen) {
  std::string text = "Camera " + SanitizeForTerminal(camera.id);
  for (const CaptureDeviceInfo& device : seen) {
    if (device.exclusionReason.empty()) {
      text += ": " + SanitizeForTerminal(device.name) + " (" + SanitizeForTerminal(device.where) + ")";
      break;
    }
  }
  std::string head = "  sizes  ";
  text += "\n";
  for (const Size& size : camera.sizes) {
    text += head + PadLeft(std::to_string(size.width), 5) + " x " + PadLeft(std::to_string(size.height), 5) +
            "\n";
    head.assign(head.size(), ' ');
  }
  return text + RateLines(camera.rates, "  rates  ") + "Not every rate comes with every size.\n" +
         OtherDevices(seen);
}

std::string ListJson(const Capabilities* camera, const std::vector<CaptureDeviceInfo>& seen) {
  const std::string cameras = camera != nullptr ? CameraJson(*camera) : "";
  return "{\"cameras\":[" + cameras + "],\"devices\":" + JsonArray(seen, JsonDevice) + "}\n";
}

void RunList(const CommandContext& place) {
  try {
    const Capabilities camera = place.camera.Query();
    place.console.out << (place.options.wantsJson ? ListJson(&camera, ListCaptureDevices())
                                                  : ListText(camera, ListCaptureDevices()));
  } catch (const Failure& failure) {
    // A program that reads the answer gets one where there is one: no cameras.
    if (place.options.wantsJson && failure.Code() == ExitCode::kNoCamera) {
      place.console.out << ListJson(nullptr, ListCaptureDevices());
    }
    throw;
  }
  if (!place.console.out.flush()) {
    throw Failure(ExitCode::kCannotWrite, "cannot write the list to the standard output");
  }
}
