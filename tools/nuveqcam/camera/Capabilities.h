// A camera's sizes and frame rates, and the default choice among them.
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

// The two lists are independent: not every rate is available at every size.
struct Capabilities {
  std::string id;
  std::vector<Size> sizes;
  std::vector<std::uint32_t> rates;  // thousandths of a frame per second
};

// The largest size up to 1280x720, else the smallest size; nullopt if there are no sizes.
std::optional<Size> ChooseSize(const std::vector<Size>& sizes);

// 30 frames per second if offered, else the highest lower rate, else the lowest rate; rounded to whole frames
// per second. 30 if there are no rates.
std::uint32_t ChooseFps(const std::vector<std::uint32_t>& rates);

// "1280x720"
std::string ToText(const Size& size);
// Thousandths of a frame per second as a decimal number, independent of the locale: "30", "29.97".
std::string RateText(std::uint32_t rate);

}  // namespace nuveqcam
