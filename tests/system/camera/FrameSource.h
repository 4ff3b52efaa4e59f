// Renders the numbered pictures as frames of a format.
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
  // format: must be able to stream. hasEndOfImage: whether MJPG frames end with the EOI marker.
  FrameSource(const graph::VideoFormat& format, bool hasEndOfImage);

  // Returns the numbered picture; brightness (-255 to 255) is added to each sample. The frame is valid until
  // the next call. Throws std::runtime_error if the frame exceeds the maximum size in the descriptors.
  std::span<const std::uint8_t> Make(std::uint64_t number, int brightness);

 private:
  // Converts BGRA to the format.
  std::span<const std::uint8_t> Pack(const std::vector<std::uint8_t>& picture);

  graph::VideoFormat m_format;
  bool m_hasEndOfImage;
  std::size_t m_maxBytes;
  simulated::NumberedPicture m_picture;
  std::unique_ptr<simulated::FramePacker> m_packer;  // for YUYV and MJPG
  std::vector<std::uint8_t> m_frame;                 // for the other formats
  std::vector<std::uint8_t> m_brightened;
};

}  // namespace uvc
