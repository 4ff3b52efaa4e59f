// The static background of the numbered picture, and the ball that moves over it.
#pragma once

#include <cstdint>
#include <vector>

namespace simulated {

// A test card on grey with coloured squares in the corners: BGRA, top-down, width * 4 bytes per line.
std::vector<std::uint8_t> PaintBackground(std::uint32_t width, std::uint32_t height);

// A ball that fills a square with the given side in pixels: BGRA, alpha is the coverage of the pixel.
std::vector<std::uint8_t> PaintBall(std::uint32_t side);

}  // namespace simulated
