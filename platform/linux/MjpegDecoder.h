// JPEG pictures to ARGB32 (BGRA in memory, bottom-up) or YUY2 (top-down, BT.601 with limited range).
#pragma once

#include <memory>
#include <vector>

#include "FrameConverter.h"

class MjpegDecoder : public FrameConverter {
 public:
  enum class Layout { kArgb32, kYuy2 };
  // width is even for YUY2.
  MjpegDecoder(std::uint32_t width, std::uint32_t height, Layout layout);

  // False for anything but a whole JPEG picture of the decoder's size.
  bool Convert(const std::uint8_t* data, std::size_t size, Picture& picture) override;

 private:
  struct Destroy {
    void operator()(void* decompressor) const;
  };
  using Decompressor = std::unique_ptr<void, Destroy>;
  // Throws std::bad_alloc.
  static Decompressor MakeDecompressor();
  bool Decompress(const std::uint8_t* data, std::size_t size);

  Decompressor m_decompressor;
  int m_width;
  int m_height;
  Layout m_layout;
  std::vector<std::uint8_t> m_bgra;
  std::vector<std::uint8_t> m_yuy2;
};
