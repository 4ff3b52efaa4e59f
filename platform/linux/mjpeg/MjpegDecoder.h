// Decodes a camera's JPEG pictures to ARGB32 (BGRA in memory, bottom-up) with libjpeg-turbo.
#pragma once

#include <memory>

#include "graph/FrameConverter.h"

namespace mjpeg {

class MjpegDecoder : public graph::FrameConverter {
 public:
  // For pictures of one size in pixels. Throws std::bad_alloc. If libjpeg runs out of memory later, Convert
  // returns false.
  MjpegDecoder(std::uint32_t width, std::uint32_t height);
  ~MjpegDecoder() override;

  // Returns false for a picture of another size and for truncated or corrupt data. Missing Huffman
  // tables are replaced by the standard ones, and a missing EOI marker (ITU-T T.81, B.1.1.3) is accepted
  // after the last row: some cameras omit them. Damage that leaves a valid stream is not detected.
  bool Convert(const std::uint8_t* data, std::size_t size, Picture& picture) override;

 private:
  class JpegLibrary;

  const std::size_t m_size;                   // of the picture, in bytes
  std::unique_ptr<std::uint8_t[]> m_picture;  // not cleared: only complete pictures are passed on
  std::unique_ptr<JpegLibrary> m_library;     // writes to m_picture
};

}  // namespace mjpeg
