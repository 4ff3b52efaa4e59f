#include "encoder/FrameLayout.h"

namespace encoder {
namespace {

std::uint64_t HalfRoundedUp(std::uint32_t length) { return (std::uint64_t{length} + 1) / 2; }

}  // namespace

bool IsKnown(ColorSpace layout) {
  return layout == ColorSpace::kI420 || layout == ColorSpace::kYuy2 || layout == ColorSpace::kArgb32;
}

std::uint64_t LineBytes(std::uint32_t width, ColorSpace layout) {
  switch (layout) {
    case ColorSpace::kI420:
      return width;
    case ColorSpace::kYuy2:
      return HalfRoundedUp(width) * 4;
    case ColorSpace::kArgb32:
      return std::uint64_t{width} * 4;
  }
  return 0;
}

std::uint64_t FrameBytes(std::uint32_t width, std::uint32_t height, ColorSpace layout) {
  // Keeps the products below from overflowing 64 bits.
  constexpr std::uint32_t kMaxAllocatedSide = std::uint32_t{1} << 20;
  if (width > kMaxAllocatedSide || height > kMaxAllocatedSide) {
    return 0;
  }
  const std::uint64_t bytes = LineBytes(width, layout) * height;
  return layout == ColorSpace::kI420 ? bytes + 2 * HalfRoundedUp(width) * HalfRoundedUp(height) : bytes;
}

}  // namespace encoder
