// A picture in memory.
#pragma once

#include <cstdint>
#include <vector>

struct Picture {
  std::uint32_t width = 0;  // pixels
  std::uint32_t height = 0;
  std::vector<std::uint8_t> rgb;  // red, green and blue, a byte each; from the top, without padding
};
