// The pictures of the camera as the frames of a format.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "simulated/FramePacker.h"
#include "simulated/NumberedPicture.h"

namespace uvc {

class FrameSource {
 public:
  // format: one that can stream. hasEndOfImage: whether MJPG frames end with the EOI marker.
  FrameSource(const graph::VideoFormat& format, bool hasEndOfImage);

  // The numbered picture of that number, brighter by so much of 255. In the source's memory until the next
  // call. Throws std::runtime_error when it is larger than the camera has promised.
  std::span<const std::uint8_t> Make(std::uint64_t number, int brightness);

 private:
  // BGRA to the format.
  std::span<const std::uint8_t> Pack(const std::vector<std::uint8_t>& picture);

  graph::VideoFormat m_format;
  bool m_hasEndOfImage;
  std::size_t m_maxBytes;
  simulated::NumberedPicture m_picture;
  std::unique_ptr<simulated::FramePacker> m_packer;  // for YUYV and MJPG
  std::vector<std::uint8_t> m_frame;                 // of the other formats
  std::vector<std::uint8_t> m_brightened;
};

}  // namespace uvc
