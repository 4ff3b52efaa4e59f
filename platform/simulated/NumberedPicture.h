// A moving picture that carries its number: which frames arrived, in which order, and whether the picture is
// upright and its colours are right can be told from the decoded video.
//
// Top twelfth: 16 black and white blocks, the number's bits 0 (left) to 15; second twelfth: its bits 16 to 23
// and eight bits of a checksum. White is 1. Below: a red, green, blue and white square in the corners top
// left, top right, bottom left and bottom right, on a grey ground with a ball that bounces across it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "Export.h"

namespace simulated {

// Numbers have 24 bits; higher ones wrap.
constexpr std::uint32_t kFrameNumberMask = 0xFFFFFF;

class NUVEQ_PLATFORM_EXPORT NumberedPicture {
 public:
  // At least 64 by 48 pixels, both even; throws std::invalid_argument otherwise.
  NumberedPicture(std::uint32_t width, std::uint32_t height);

  // The picture of that number as BGRA, top-down, width * 4 bytes a line; valid until the next call. The same
  // number gives the same picture.
  const std::vector<std::uint8_t>& Paint(std::uint32_t number);

 private:
  void PaintNumber(std::uint32_t number);
  void MoveBall(std::uint32_t number);

  std::uint32_t m_width;
  std::uint32_t m_height;
  std::vector<std::uint8_t> m_ground;
  std::vector<std::uint8_t> m_picture;
  std::uint32_t m_ballSide;  // pixels
  std::vector<std::uint8_t> m_ball;
  std::uint32_t m_ballLeft = 0;  // where it is in the picture
  std::uint32_t m_ballTop = 0;
};

// The number in a picture's luma plane (any range, top-down); nothing when a block is neither black nor white
// or the checksum does not match. A picture that is upside down gives nothing.
NUVEQ_PLATFORM_EXPORT std::optional<std::uint32_t> ReadFrameNumber(const std::uint8_t* luma,
                                                                   std::size_t stride, std::uint32_t width,
                                                                   std::uint32_t height);

// How far the corner squares are from their colours, in the picture's own Y, U and V (BT.601, limited
// range): the greatest difference of the squares' means. 4:2:0 planes without gaps, of a size that
// NumberedPicture takes.
NUVEQ_PLATFORM_EXPORT double CornerColourError(const std::uint8_t* y, const std::uint8_t* u,
                                               const std::uint8_t* v, std::uint32_t width,
                                               std::uint32_t height);

}  // namespace simulated
