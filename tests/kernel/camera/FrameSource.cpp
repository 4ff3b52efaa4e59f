#include "FrameSource.h"

#include <algorithm>
#include <stdexcept>

namespace uvc {

FrameSource::FrameSource(const VideoFormat& format)
    : m_largest(std::size_t{2} * format.width * format.height),
      m_picture(format.width, format.height),
      m_packer(format) {}

std::span<const std::uint8_t> FrameSource::Make(std::uint64_t number, int brightness) {
  const std::vector<std::uint8_t>* picture =
      &m_picture.Paint(static_cast<std::uint32_t>(number & kFrameNumberMask));
  if (brightness != 0) {
    m_brightened.resize(picture->size());
    std::ranges::transform(*picture, m_brightened.begin(), [brightness](std::uint8_t value) {
      return static_cast<std::uint8_t>(std::clamp(value + brightness, 0, 255));
    });
    picture = &m_brightened;
  }
  const std::span<const std::uint8_t> frame = m_packer.Pack(*picture);
  if (frame.size() > m_largest) {
    throw std::runtime_error("a frame is larger than the camera has said that frames are");
  }
  return frame;
}

}  // namespace uvc
