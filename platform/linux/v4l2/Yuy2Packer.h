// Converts the raw YUV formats of V4L2 devices to YUY2.
#pragma once

#include <linux/videodev2.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace v4l2 {

// True for the pixel formats of linux/videodev2.h that Yuy2Packer reads: 8-bit 4:2:2 and 4:2:0 in one buffer,
// packed (YUYV and its permutations), semi-planar (NV12 and the like) or planar (YU12 and the like).
bool CanPackAsYuy2(std::uint32_t pixelFormat);

// Converts pictures of one format to YUY2 (top-down, without padding between lines). Chroma of 4:2:0 formats
// is repeated for the second line. Used by one thread at a time.
class Yuy2Packer {
 public:
  Yuy2Packer() = default;
  // The format as the driver returned it, with CanPackAsYuy2(pixelformat). The width is even unless it is
  // YUYV.
  explicit Yuy2Packer(const v4l2_pix_format& format);

  // Size of a picture in the driver's buffer in bytes, up to the last sample.
  std::size_t SourceBytes() const;
  // Size of a picture as YUY2 in bytes.
  std::size_t PackedBytes() const { return 2 * m_width * m_height; }

  // Returns the picture as YUY2: the source itself if it is YUY2 without padding, otherwise the packer's
  // memory, valid until the next call. Reads SourceBytes() bytes.
  std::uint8_t* Pack(std::uint8_t* source);

 private:
  std::size_t ChromaLines() const;
  void PackPlanes(const std::uint8_t* source, std::uint8_t* target);

  std::uint32_t m_pixelFormat = 0;
  std::size_t m_width = 0;   // pixels
  std::size_t m_height = 0;  // lines
  std::size_t m_stride = 0;  // bytes from line to line of luma or of packed samples
  std::vector<std::uint8_t> m_packed;
  std::vector<std::uint8_t> m_chroma;  // semi-planar formats: the U and V planes, one after the other
};

}  // namespace v4l2
