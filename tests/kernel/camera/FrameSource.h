// The pictures of the camera as the frames of a format.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "FramePacker.h"
#include "NumberedPicture.h"

namespace uvc {

class FrameSource {
 public:
  explicit FrameSource(const VideoFormat& format);

  // The numbered picture of that number, brighter by so much of 255. In the source's memory until the next
  // call. Throws std::runtime_error when it is larger than the camera has promised.
  std::span<const std::uint8_t> Make(std::uint64_t number, int brightness);

 private:
  std::size_t m_largest;
  NumberedPicture m_picture;
  simulated::FramePacker m_packer;
  std::vector<std::uint8_t> m_brightened;
};

}  // namespace uvc
