// A camera's sizes and frame rates, and the default rate.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace nuveqcam {

struct Size {
  std::uint32_t width = 0;  // pixels
  std::uint32_t height = 0;

  friend bool operator==(const Size& a, const Size& b) { return a.width == b.width && a.height == b.height; }
};

// From the width and height of a driver, in which the sign of the height is the line order in memory.
constexpr Size ToSize(std::int32_t width, std::int32_t height) {
  return {static_cast<std::uint32_t>(width),
          height < 0 ? 0U - static_cast<std::uint32_t>(height) : static_cast<std::uint32_t>(height)};
}

// A size together with a rate that the driver lists for it.
struct SizeRate {
  Size size;
  std::uint32_t fps = 0;  // whole frames per second, rounded down

  friend bool operator==(const SizeRate& a, const SizeRate& b) { return a.size == b.size && a.fps == b.fps; }
};

// The two lists are independent: not every rate is available at every size.
struct Capabilities {
  std::string id;
  std::vector<Size> sizes;
  std::vector<std::uint32_t> rates;  // thousandths of a frame per second
  // The driver's list as the library's log has it, with duplicates; empty if the log does not have it. The
  // camera may deliver other rates.
  std::vector<SizeRate> formats = {};
};

// The highest rate that the driver lists for the size, in whole frames per second; nullopt if that is not
// known.
std::optional<std::uint32_t> ListedFps(const Capabilities& camera, const Size& size);

// Requests are in whole frames per second: 30 for a rate of 29.97.
std::uint32_t WholeFps(std::uint32_t rate);

// The rates that a size may have, in whole frames per second, the highest first: those that the driver lists
// for it, or all of the camera if that is not known. At least one.
std::vector<std::uint32_t> OfferedFps(const Capabilities& camera, const Size& size);

// 30 frames per second if offered, else the highest lower rate, else the lowest rate; rounded to whole frames
// per second. 30 if there are no rates.
std::uint32_t ChooseFps(const std::vector<std::uint32_t>& rates);

// "1280x720"
std::string ToText(const Size& size);
// Thousandths of a frame per second as a decimal number, independent of the locale: "30", "29.97".
std::string RateText(std::uint32_t rate);

}  // namespace nuveqcam
