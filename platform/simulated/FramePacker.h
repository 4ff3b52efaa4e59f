// Converts pictures to the frames of a camera.
#pragma once

#include <turbojpeg.h>

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "graph/VideoFormat.h"

namespace simulated {

class FramePacker {
 public:
  // YUYV: two bytes per pixel, BT.601 limited range, top-down. MJPG: baseline JPEG, 4:2:2, full range.
  // Throws std::invalid_argument for other pixel formats.
  explicit FramePacker(const graph::VideoFormat& format);

  // picture: BGRA, top-down, of the format's size. The result is valid until the next call.
  std::span<std::uint8_t> Pack(const std::vector<std::uint8_t>& picture);

 private:
  struct DestroyCompressor {
    void operator()(void* compressor) const { tjDestroy(compressor); }
  };

  std::span<std::uint8_t> Compress(const std::vector<std::uint8_t>& picture);

  graph::VideoFormat m_format;
  std::unique_ptr<void, DestroyCompressor> m_compressor;  // for MJPG
  std::vector<std::uint8_t> m_frame;
};

}  // namespace simulated
