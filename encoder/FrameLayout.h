// Sizes and strides of raw frames by layout, in one place for those who allocate and those who read them.
#pragma once

#include <cstddef>
#include <cstdint>

#include "MultiMediaEncoder.h"

namespace encoder {

// Pixels a side. Pictures beyond them cannot be encoded; frames of other sizes may still be allocated.
constexpr std::uint32_t kMinSide = 16;
constexpr std::uint32_t kMaxSide = 4096;

bool IsKnown(ColorSpace layout);

// Bytes of one line: of the luma plane for I420, of the whole picture otherwise. A packed line of odd width
// holds one more pixel than it shows.
std::uint64_t LineBytes(std::uint32_t width, ColorSpace layout);

// Bytes of one frame; 0 for an unknown layout, an empty picture, and sides of more than 2^20 pixels.
std::uint64_t FrameBytes(std::uint32_t width, std::uint32_t height, ColorSpace layout);

}  // namespace encoder
