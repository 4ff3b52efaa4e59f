// Sizes and strides of raw frames by layout.
#pragma once

#include <cstddef>
#include <cstdint>

#include "MultiMediaEncoder.h"

namespace encoder {

// Width and height limits of encoded pictures, in pixels. VideoFrame accepts other sizes as well.
constexpr std::uint32_t kMinSide = 16;
constexpr std::uint32_t kMaxSide = 4096;

bool IsKnown(ColorSpace layout);

// Bytes per line: of the luma plane for I420, of the packed picture otherwise. A YUY2 line of odd width is
// padded to a whole pair of pixels. Returns 0 for an unknown layout.
std::uint64_t LineBytes(std::uint32_t width, ColorSpace layout);

// Bytes per frame. Returns 0 for an unknown layout, an empty picture, or a side above 2^20 pixels.
std::uint64_t FrameBytes(std::uint32_t width, std::uint32_t height, ColorSpace layout);

}  // namespace encoder
