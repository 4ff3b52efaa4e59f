// Converts raw frames (YUY2, ARGB32) to I420, the input format of the encoder.
#pragma once

#include <array>
#include <cstdint>
#include <memory>

#include "MultiMediaEncoder.h"

namespace encoder {

// Top-down 4:2:0 planes in the order Y, U, V. Does not own the memory.
struct Planes {
  std::array<std::uint8_t*, 3> data{};
  std::array<int, 3> stride{};
};

// Converts frames of one size and layout. An odd width or height is rounded down to an even one. The colour
// space is BT.601, limited range. Not thread-safe.
class I420Converter {
 public:
  // Width and height in pixels; layout must be known (IsKnown). Throws std::bad_alloc.
  I420Converter(std::uint32_t width, std::uint32_t height, ColorSpace layout);

  std::uint32_t EvenWidth() const { return m_evenWidth; }
  std::uint32_t EvenHeight() const { return m_evenHeight; }

  // Converts a frame of FrameBytes bytes. I420 frames are not copied: the planes point into bytes. Otherwise
  // they point into the converter and stay valid until the next call.
  Planes Convert(std::uint8_t* bytes);

 private:
  // The planes in m_buffer.
  Planes BufferPlanes() const;
  // Converts two lines, the first of which starts at source, to line and line + 1 of the planes.
  void ConvertLinePair(const std::uint8_t* source, const Planes& planes, std::uint32_t line) const;
  // The planes of an I420 frame.
  Planes FramePlanes(std::uint8_t* bytes) const;

  std::uint32_t m_width;
  std::uint32_t m_height;
  ColorSpace m_layout;
  std::uint32_t m_evenWidth;
  std::uint32_t m_evenHeight;
  std::unique_ptr<VideoFrame> m_buffer;  // null if the layout is I420
};

}  // namespace encoder
