#include "simulated/NumberedPicture.h"

#include <algorithm>
#include <array>
#include <stdexcept>

#include "simulated/PictureBackground.h"
#include "simulated/PictureLayout.h"

namespace simulated {

namespace {

// The ball crosses the picture in kCrossing frames and bounces every kBounce frames.
constexpr std::uint32_t kCrossing = 120;
constexpr std::uint32_t kBounce = 45;

std::ptrdiff_t Offset(std::size_t bytes) { return static_cast<std::ptrdiff_t>(bytes); }

void BlendPixel(const std::uint8_t* over, std::uint8_t* pixel) {
  const std::uint32_t alpha = over[3];
  for (int i = 0; i < 3; ++i) {
    pixel[i] = static_cast<std::uint8_t>((over[i] * alpha + pixel[i] * (255 - alpha) + 127) / 255);
  }
}

}  // namespace

NumberedPicture::NumberedPicture(std::uint32_t width, std::uint32_t height)
    : m_width(width), m_height(height), m_ballSide(std::min(width, height) / 6) {
  if (width < kMinWidth || height < kMinHeight || width % 2 != 0 || height % 2 != 0) {
    throw std::invalid_argument("a numbered picture needs even sides of at least 64 by 48 pixels");
  }
  m_background = PaintBackground(width, height);
  m_picture = m_background;
  m_ball = PaintBall(m_ballSide);
}

const std::vector<std::uint8_t>& NumberedPicture::Paint(std::uint32_t number) {
  MoveBall(number & kFrameNumberMask);
  PaintNumber(number & kFrameNumberMask);
  return m_picture;
}

void NumberedPicture::PaintNumber(std::uint32_t number) {
  constexpr std::array<std::uint8_t, 4> kBlack{0, 0, 0, 255};
  constexpr std::array<std::uint8_t, 4> kWhite{255, 255, 255, 255};
  const PictureLayout layout{m_width, m_height};
  const std::uint32_t bits = WithChecksum(number);
  const std::size_t line = std::size_t{4} * m_width;
  for (std::uint32_t bit = 0; bit < kBlocks; ++bit) {
    const Rect block = layout.Block(bit);
    const auto& colour = (bits >> bit & 1U) != 0 ? kWhite : kBlack;
    const auto first = m_picture.begin() + Offset(block.top * line + std::size_t{4} * block.left);
    auto end = first;
    for (std::uint32_t x = block.left; x < block.right; ++x) {
      end = std::copy(colour.begin(), colour.end(), end);
    }
    for (std::uint32_t y = 1; y < block.bottom - block.top; ++y) {
      std::copy(first, end, first + Offset(y * line));
    }
  }
}

void NumberedPicture::MoveBall(std::uint32_t number) {
  const std::size_t line = std::size_t{4} * m_width;
  const std::size_t ballLine = std::size_t{4} * m_ballSide;
  // Restore the background at the old position.
  for (std::uint32_t y = m_ballTop; y < m_ballTop + m_ballSide; ++y) {
    const auto from = m_background.begin() + Offset(y * line + std::size_t{4} * m_ballLeft);
    std::copy(from, from + Offset(ballLine),
              m_picture.begin() + Offset(y * line + std::size_t{4} * m_ballLeft));
  }
  // Horizontally back and forth between the corner squares, vertically in parabolas below the blocks.
  const std::uint32_t square = PictureLayout{m_width, m_height}.CornerSquares()[0].right;
  const std::uint32_t phase = number % (2 * kCrossing);
  const std::uint32_t position = phase < kCrossing ? phase : 2 * kCrossing - phase;
  m_ballLeft = square + (m_width - 2 * square - m_ballSide) * position / kCrossing;
  const std::uint32_t time = number % kBounce;
  const std::uint32_t maxHeight = m_height - m_ballSide - PictureLayout{m_width, m_height}.BelowBlocks();
  m_ballTop = m_height - m_ballSide - maxHeight * 4 * time * (kBounce - time) / (kBounce * kBounce);
  for (std::uint32_t y = 0; y < m_ballSide; ++y) {
    for (std::uint32_t x = 0; x < m_ballSide; ++x) {
      BlendPixel(&m_ball[y * ballLine + std::size_t{4} * x],
                 &m_picture[(m_ballTop + y) * line + std::size_t{4} * (m_ballLeft + x)]);
    }
  }
}

}  // namespace simulated
