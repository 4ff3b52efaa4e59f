#include <algorithm>
#include <ostream>

#include "cli/Text.h"
#include "commands/Commands.h"
#include "commands/Json.h"

namespace nuveqcam {
namespace {

// The width of a column for the devices that are not offered.
template <typename Get>
std::size_t WidthOf(const std::vector<CaptureDeviceInfo>& devices, const Get& get) {
  std::size_t width = 0;
  for (const CaptureDeviceInfo& device : devices) {
    width = std::max(width,
                     device.exclusionReason.empty() ? 0 : CodePointCount(SanitizeForTerminal(get(device))));
  }
  return width;
}

std::string OtherDevices(const std::vector<CaptureDeviceInfo>& devices) {
  const auto node = [](const CaptureDeviceInfo& device) { return device.node; };
  const auto name = [](const CaptureDeviceInfo& device) { return device.name; };
  std::string text;
  for (const CaptureDeviceInfo& device : devices) {
    if (!device.exclusionReason.empty()) {
      text += "  " + PadRight(SanitizeForTerminal(node(device)), WidthOf(devices, node)) + "  " +
              PadRight(SanitizeForTerminal(name(device)), WidthOf(devices, name)) + "  " +
              SanitizeForTerminal(device.exclusionReason) + "\n";
    }
  }
  return text.empty() ? "" : "\nOther capture devices (not offered):\n" + text;
}

// Aligns the decimal points.
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

std::string ListText(const Capabilities& camera, const std::vector<CaptureDeviceInfo>& devices) {
  std::string text = "Camera " + SanitizeForTerminal(camera.id);
  for (const CaptureDeviceInfo& device : devices) {
    if (device.exclusionReason.empty()) {
      text += ": " + SanitizeForTerminal(device.name) + " (" + SanitizeForTerminal(device.node) + ")";
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
  return text + RateLines(camera.rates, "  rates  ") + "Not every rate is available at every size.\n" +
         OtherDevices(devices);
}

void RunList(const CommandContext& context) {
  try {
    const Capabilities camera = context.camera.Query();
    context.console.out << (context.options.wantsJson ? ListJson(&camera, ListCaptureDevices())
                                                      : ListText(camera, ListCaptureDevices()));
  } catch (const Failure& failure) {
    // With --json, "no cameras" is a valid result and is printed, too.
    if (context.options.wantsJson && failure.Code() == ExitCode::kNoCamera) {
      context.console.out << ListJson(nullptr, ListCaptureDevices());
    }
    throw;
  }
  if (!context.console.out.flush()) {
    throw Failure(ExitCode::kCannotWrite, "cannot write the list to standard output");
  }
}

}  // namespace nuveqcam
