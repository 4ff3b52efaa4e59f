// What stands still in the numbered picture, and the ball that moves over it.
#pragma once

#include <cstdint>
#include <vector>

namespace simulated {

// A test card on grey with the coloured squares in its corners: BGRA, top-down, width * 4 bytes a line.
std::vector<std::uint8_t> PaintGround(std::uint32_t width, std::uint32_t height);

// A ball that fills a square of that side, in pixels: BGRA, its alpha says how much of a pixel is ball.
std::vector<std::uint8_t> PaintBall(std::uint32_t side);

}  // namespace simulated
