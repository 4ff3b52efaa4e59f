// The layout of the numbered picture, shared by painter and reader.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

namespace simulated {

constexpr std::uint32_t kBlocksInRow = 16;
constexpr std::uint32_t kBlocks = 2 * kBlocksInRow;
constexpr std::uint32_t kMinWidth = 64;
constexpr std::uint32_t kMinHeight = 48;

struct Rgb {
  std::uint8_t r = 0;
  std::uint8_t g = 0;
  std::uint8_t b = 0;
};

// In pixels; right and bottom are exclusive.
struct Rect {
  std::uint32_t left = 0;
  std::uint32_t top = 0;
  std::uint32_t right = 0;
  std::uint32_t bottom = 0;
};

// The inner half in both directions, away from edges that compression blurs.
inline Rect Middle(const Rect& rect) {
  const std::uint32_t x = (rect.right - rect.left) / 4;
  const std::uint32_t y = (rect.bottom - rect.top) / 4;
  return {rect.left + x, rect.top + y, rect.right - x, rect.bottom - y};
}

struct PictureLayout {
  std::uint32_t width;
  std::uint32_t height;

  // Bit 0 is the left block of the first row, bit 16 the left block of the second row.
  Rect Block(std::uint32_t bit) const {
    const std::uint32_t column = bit % kBlocksInRow;
    const std::uint32_t row = bit / kBlocksInRow;
    return {column * width / kBlocksInRow, row * height / 12, (column + 1) * width / kBlocksInRow,
            (row + 1) * height / 12};
  }

  std::uint32_t BelowBlocks() const { return 2 * height / 12; }

  // Top left, top right, bottom left, bottom right. All coordinates are even, so that no chroma sample covers
  // two colours.
  std::array<Rect, 4> CornerSquares() const {
    const std::uint32_t side = std::min(width, height) / 6 & ~1U;
    const std::uint32_t top = (BelowBlocks() + 1) & ~1U;
    return {Rect{0, top, side, top + side}, Rect{width - side, top, width, top + side},
            Rect{0, height - side, side, height}, Rect{width - side, height - side, width, height}};
  }
};

constexpr std::array<Rgb, 4> kCornerColours{Rgb{255, 0, 0}, Rgb{0, 255, 0}, Rgb{0, 0, 255},
                                            Rgb{255, 255, 255}};

// The 32 bits that the blocks show: the 24-bit number and its CRC-8, which detects all errors of up to three
// bits. The CRC's initial value guarantees that there are both black and white blocks.
constexpr std::uint32_t WithChecksum(std::uint32_t number) {
  std::uint32_t crc = 0xFF;
  for (std::uint32_t byte = 0; byte < 3; ++byte) {
    crc ^= number >> (8 * byte) & 0xFF;
    for (int bit = 0; bit < 8; ++bit) {
      crc = (crc << 1 ^ ((crc & 0x80) != 0 ? 0x07U : 0U)) & 0xFF;
    }
  }
  return number | crc << 24;
}
static_assert(WithChecksum(0) != 0);
static_assert(WithChecksum(0xFFFFFF) != 0xFFFFFFFF);

}  // namespace simulated
