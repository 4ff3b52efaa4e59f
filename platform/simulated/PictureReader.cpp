// Reading the numbered picture.
#include <algorithm>
#include <array>
#include <cmath>

#include "simulated/NumberedPicture.h"
#include "simulated/PictureLayout.h"

namespace simulated {

namespace {

// The minimum difference between black and white blocks, and the share of it around the threshold in which a
// block is ambiguous.
constexpr double kMinContrast = 48;
constexpr double kAmbiguousShare = 0.1;

double Mean(const std::uint8_t* plane, std::size_t stride, const Rect& rect) {
  std::uint64_t sum = 0;
  for (std::uint32_t y = rect.top; y < rect.bottom; ++y) {
    for (std::uint32_t x = rect.left; x < rect.right; ++x) {
      sum += plane[y * stride + x];
    }
  }
  const auto pixels = std::uint64_t{rect.right - rect.left} * (rect.bottom - rect.top);
  return static_cast<double>(sum) / static_cast<double>(pixels);
}

// ITU-R BT.601, limited range.
std::array<double, 3> YuvOf(const Rgb& c) {
  return {16 + (65.481 * c.r + 128.553 * c.g + 24.966 * c.b) / 255,
          128 + (-37.797 * c.r - 74.203 * c.g + 112.0 * c.b) / 255,
          128 + (112.0 * c.r - 93.786 * c.g - 18.214 * c.b) / 255};
}

}  // namespace

std::optional<std::uint32_t> ReadFrameNumber(const std::uint8_t* luma, std::size_t stride,
                                             std::uint32_t width, std::uint32_t height) {
  if (width < kMinWidth || height < kMinHeight) {
    return std::nullopt;
  }
  std::array<double, kBlocks> blocks{};
  const PictureLayout layout{width, height};
  for (std::uint32_t bit = 0; bit < kBlocks; ++bit) {
    blocks[bit] = Mean(luma, stride, Middle(layout.Block(bit)));
  }
  const auto [darkest, brightest] = std::minmax_element(blocks.begin(), blocks.end());
  const double contrast = *brightest - *darkest;
  if (contrast < kMinContrast) {
    return std::nullopt;
  }
  const double threshold = *darkest + contrast / 2;
  std::uint32_t bits = 0;
  for (std::uint32_t bit = 0; bit < kBlocks; ++bit) {
    if (std::abs(blocks[bit] - threshold) < kAmbiguousShare * contrast) {
      return std::nullopt;
    }
    bits |= (blocks[bit] > threshold ? 1U : 0U) << bit;
  }
  const std::uint32_t number = bits & kFrameNumberMask;
  return WithChecksum(number) == bits ? std::optional(number) : std::nullopt;
}

double CornerColourError(const std::uint8_t* y, const std::uint8_t* u, const std::uint8_t* v,
                         std::uint32_t width, std::uint32_t height) {
  double error = 0;
  const auto squares = PictureLayout{width, height}.CornerSquares();
  for (std::size_t i = 0; i < squares.size(); ++i) {
    const auto [wantedY, wantedU, wantedV] = YuvOf(kCornerColours[i]);
    const Rect& square = squares[i];
    const Rect chroma = Middle({square.left / 2, square.top / 2, square.right / 2, square.bottom / 2});
    error = std::max({error, std::abs(Mean(y, width, Middle(square)) - wantedY),
                      std::abs(Mean(u, width / 2, chroma) - wantedU),
                      std::abs(Mean(v, width / 2, chroma) - wantedV)});
  }
  return error;
}

}  // namespace simulated
