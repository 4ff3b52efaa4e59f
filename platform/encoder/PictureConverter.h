// Raw frames as the planes that the encoder reads.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "MultiMediaEncoder.h"

namespace encoder {

// 4:2:0 planes, Y then U then V, top-down; the memory is the frame's or the converter's.
struct Planes {
  std::array<std::uint8_t*, 3> data{};
  std::array<int, 3> stride{};
};

// Turns frames of one size and layout into planes of the even size below it. Colours are BT.601, limited
// range.
class PictureConverter {
 public:
  // Sides in pixels and a known layout.
  PictureConverter(std::uint32_t width, std::uint32_t height, ColorSpace layout);

  std::uint32_t EvenWidth() const { return m_evenWidth; }
  std::uint32_t EvenHeight() const { return m_evenHeight; }

  // The picture in a frame's bytes, valid until the next call and as long as the frame. bytes has FrameBytes
  // of memory.
  Planes Convert(std::uint8_t* bytes);

 private:
  // Planes of the converter's own, for layouts that are converted.
  Planes OwnPlanes();
  // The planes that an I420 frame consists of.
  Planes FramePlanes(std::uint8_t* bytes) const;

  std::uint32_t m_width;
  std::uint32_t m_height;
  ColorSpace m_layout;
  std::uint32_t m_evenWidth;
  std::uint32_t m_evenHeight;
  std::vector<std::uint8_t> m_memory;
};

}  // namespace encoder
