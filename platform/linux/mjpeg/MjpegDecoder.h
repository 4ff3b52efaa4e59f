// JPEG pictures to ARGB32 (BGRA in memory, bottom-up) or YUY2 (top-down, BT.601 with limited range).
#pragma once

#include <memory>
#include <vector>

#include "graph/FrameConverter.h"

class JpegReader;

class MjpegDecoder : public FrameConverter {
 public:
  enum class Layout { kArgb32, kYuy2 };
  // width is even for YUY2.
  MjpegDecoder(std::uint32_t width, std::uint32_t height, Layout layout);
  ~MjpegDecoder() override;

  // False for anything but a whole JPEG picture of the decoder's size. Damage that still makes a valid stream
  // shows in the picture and nowhere else.
  bool Convert(const std::uint8_t* data, std::size_t size, Picture& picture) override;

 private:
  std::size_t m_stride;
  std::unique_ptr<JpegReader> m_reader;
  std::vector<std::uint8_t> m_picture;
};
