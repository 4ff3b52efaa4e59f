// A moving test picture that shows its frame number, so that a test can check in the decoded video which
// frames arrived, in which order, and whether orientation and colours are correct.
//
// Top twelfth: 16 black and white blocks with bits 0 (left) to 15 of the number. Second twelfth: bits 16 to
// 23 and an 8-bit checksum. White is 1. Below: a red, green, blue and white square in the top left, top
// right, bottom left and bottom right corner, a test card on grey, and a bouncing ball.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "Export.h"

namespace simulated {

// Frame numbers wrap at 24 bits.
constexpr std::uint32_t kFrameNumberMask = 0xFFFFFF;

class NUVEQ_PLATFORM_EXPORT NumberedPicture {
 public:
  // Throws std::invalid_argument unless both sides are even and at least 64 by 48 pixels.
  NumberedPicture(std::uint32_t width, std::uint32_t height);

  // The picture for a frame number as BGRA, top-down, width * 4 bytes per line; valid until the next call.
  // Equal numbers give equal pictures.
  const std::vector<std::uint8_t>& Paint(std::uint32_t number);

 private:
  void PaintNumber(std::uint32_t number);
  void MoveBall(std::uint32_t number);

  std::uint32_t m_width;
  std::uint32_t m_height;
  std::vector<std::uint8_t> m_background;
  std::vector<std::uint8_t> m_picture;
  std::uint32_t m_ballSide;  // pixels
  std::vector<std::uint8_t> m_ball;
  std::uint32_t m_ballLeft = 0;  // current position
  std::uint32_t m_ballTop = 0;
};

// Reads the frame number from a luma plane (any range, top-down). Returns nullopt if a block is neither black
// nor white or the checksum does not match, as in an upside-down picture.
NUVEQ_PLATFORM_EXPORT std::optional<std::uint32_t> ReadFrameNumber(const std::uint8_t* luma,
                                                                   std::size_t stride, std::uint32_t width,
                                                                   std::uint32_t height);

// The maximum difference between the means of the corner squares and their expected Y, U and V (BT.601,
// limited range). The planes are 4:2:0 without padding, of a size that NumberedPicture supports.
NUVEQ_PLATFORM_EXPORT double CornerColourError(const std::uint8_t* y, const std::uint8_t* u,
                                               const std::uint8_t* v, std::uint32_t width,
                                               std::uint32_t height);

}  // namespace simulated
