// Raw frames as the planes that the encoder reads.
#pragma once

#include <array>
#include <cstdint>
#include <memory>

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
  // Sides in pixels and a known layout. Throws std::bad_alloc.
  PictureConverter(std::uint32_t width, std::uint32_t height, ColorSpace layout);

  std::uint32_t EvenWidth() const { return m_evenWidth; }
  std::uint32_t EvenHeight() const { return m_evenHeight; }

  // The picture in a frame's bytes, valid until the next call and as long as the frame. bytes has FrameBytes
  // of memory.
  Planes Convert(std::uint8_t* bytes);

 private:
  // Planes of the converter's own, for layouts that are converted.
  Planes OwnPlanes() const;
  // Two lines of a frame, the first at pair, into lines of the planes from line on.
  void ConvertPair(const std::uint8_t* pair, const Planes& planes, std::uint32_t line) const;
  // The planes that an I420 frame consists of.
  Planes FramePlanes(std::uint8_t* bytes) const;

  std::uint32_t m_width;
  std::uint32_t m_height;
  ColorSpace m_layout;
  std::uint32_t m_evenWidth;
  std::uint32_t m_evenHeight;
  std::unique_ptr<VideoFrame> m_own;  // null for a layout that needs none
};

}  // namespace encoder
