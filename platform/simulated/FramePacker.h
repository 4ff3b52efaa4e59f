// Pictures as the raw frames of a camera.
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
  // YUYV: two bytes a pixel, BT.601 in limited range, top-down. MJPG: a baseline JPEG, 4:2:2, in full range.
  // Throws std::invalid_argument for another layout.
  explicit FramePacker(const graph::VideoFormat& format);

  // The frame of a picture of the format's size (BGRA, top-down), in the packer's memory until the next call.
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
