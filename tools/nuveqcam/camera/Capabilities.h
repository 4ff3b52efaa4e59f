// What a camera can deliver, and what to choose from it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct Size {
  std::uint32_t width = 0;  // pixels
  std::uint32_t height = 0;

  friend bool operator==(const Size& a, const Size& b) { return a.width == b.width && a.height == b.height; }
};

// The two lists are independent: not every rate comes with every size.
struct Capabilities {
  std::string id;
  std::vector<Size> sizes;
  std::vector<std::uint32_t> rates;  // thousandths of a frame per second
};

// The largest size up to 1280x720; where there is none, the smallest; nothing without sizes.
std::optional<Size> ChooseSize(const std::vector<Size>& sizes);

// 30 frames per second; where that is not offered, the highest rate below it, else the lowest. Whole frames
// per second, which is how rates are asked for. 30 without rates.
std::uint32_t ChooseFps(const std::vector<std::uint32_t>& rates);

// "1280x720"
std::string ToText(const Size& size);
// "30", "29.97": thousandths of a frame per second as a decimal number, whatever the locale.
std::string RateText(std::uint32_t rate);
