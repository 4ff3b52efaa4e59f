#include "PictureConverter.h"

#include <libyuv.h>

#include "FrameLayout.h"

namespace encoder {

PictureConverter::PictureConverter(std::uint32_t width, std::uint32_t height, ColorSpace layout)
    : m_width(width),
      m_height(height),
      m_layout(layout),
      m_evenWidth(width & ~1U),
      m_evenHeight(height & ~1U),
      m_memory(layout == ColorSpace::kI420 ? 0 : FrameBytes(m_evenWidth, m_evenHeight, ColorSpace::kI420)) {}

Planes PictureConverter::Convert(std::uint8_t* bytes) {
  const auto stride = static_cast<int>(LineBytes(m_width, m_layout));
  const auto width = static_cast<int>(m_evenWidth);
  const auto height = static_cast<int>(m_evenHeight);
  if (m_layout == ColorSpace::kI420) {
    return FramePlanes(bytes);
  }
  const Planes planes = OwnPlanes();
  if (m_layout == ColorSpace::kYuy2) {
    libyuv::YUY2ToI420(bytes, stride, planes.data[0], planes.stride[0], planes.data[1], planes.stride[1],
                       planes.data[2], planes.stride[2], width, height);
    return planes;
  }
  // Bottom-up: the line that an odd height has too many, the lowest of the picture, is the first in memory. A
  // negative height turns the rest over.
  std::uint8_t* const lowest = bytes + (m_height - m_evenHeight) * LineBytes(m_width, m_layout);
  libyuv::ARGBToI420(lowest, stride, planes.data[0], planes.stride[0], planes.data[1], planes.stride[1],
                     planes.data[2], planes.stride[2], width, -height);
  return planes;
}

Planes PictureConverter::OwnPlanes() {
  const std::size_t luma = std::size_t{m_evenWidth} * m_evenHeight;
  const auto stride = static_cast<int>(m_evenWidth);
  return {{m_memory.data(), m_memory.data() + luma, m_memory.data() + luma + luma / 4},
          {stride, stride / 2, stride / 2}};
}

Planes PictureConverter::FramePlanes(std::uint8_t* bytes) const {
  const std::size_t luma = std::size_t{m_width} * m_height;
  const std::size_t chromaWidth = (std::size_t{m_width} + 1) / 2;
  const std::size_t chroma = chromaWidth * ((std::size_t{m_height} + 1) / 2);
  return {{bytes, bytes + luma, bytes + luma + chroma},
          {static_cast<int>(m_width), static_cast<int>(chromaWidth), static_cast<int>(chromaWidth)}};
}

}  // namespace encoder
