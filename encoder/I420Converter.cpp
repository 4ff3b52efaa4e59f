#include "encoder/I420Converter.h"

#include <libyuv.h>

#include <new>

#include "encoder/FrameLayout.h"

namespace encoder {
namespace {

std::unique_ptr<VideoFrame> AllocateI420(std::uint32_t width, std::uint32_t height) {
  auto frame = std::make_unique<VideoFrame>();
  if (!frame->AllocBuffer(width, height, ColorSpace::kI420)) {
    throw std::bad_alloc();
  }
  return frame;
}

// The frame was written on another core, so it is not in this core's cache, and hardware prefetching stops at
// page boundaries. Prefetching the next lines hides that latency.
void Prefetch(const std::uint8_t* bytes, std::uint64_t count) {
#if defined(__GNUC__)
  constexpr std::uint64_t kCacheLine = 64;
  for (std::uint64_t offset = 0; offset < count; offset += kCacheLine) {
    __builtin_prefetch(bytes + offset);
  }
#else
  static_cast<void>(bytes);
  static_cast<void>(count);
#endif
}

}  // namespace

I420Converter::I420Converter(std::uint32_t width, std::uint32_t height, ColorSpace layout)
    : m_width(width),
      m_height(height),
      m_layout(layout),
      m_evenWidth(width & ~1U),
      m_evenHeight(height & ~1U),
      m_buffer(layout == ColorSpace::kI420 ? nullptr : AllocateI420(m_evenWidth, m_evenHeight)) {}

Planes I420Converter::Convert(std::uint8_t* bytes) {
  if (m_layout == ColorSpace::kI420) {
    return FramePlanes(bytes);
  }
  const Planes planes = BufferPlanes();
  const std::uint64_t pairBytes = 2 * LineBytes(m_width, m_layout);
  const bool isBottomUp = m_layout == ColorSpace::kArgb32;
  // An odd height drops the bottom line of the picture, which is the first in memory if the layout is
  // bottom-up.
  const std::uint8_t* source =
      bytes + (isBottomUp ? (m_height - m_evenHeight) * LineBytes(m_width, m_layout) : 0);
  // Read in memory order, which is faster, also if the picture is bottom-up.
  for (std::uint32_t line = 0; line < m_evenHeight; line += 2, source += pairBytes) {
    if (line + 2 < m_evenHeight) {
      Prefetch(source + pairBytes, pairBytes);
    }
    ConvertLinePair(source, planes, isBottomUp ? m_evenHeight - 2 - line : line);
  }
  return planes;
}

void I420Converter::ConvertLinePair(const std::uint8_t* source, const Planes& planes,
                                    std::uint32_t line) const {
  const auto stride = static_cast<int>(LineBytes(m_width, m_layout));
  const auto width = static_cast<int>(m_evenWidth);
  const auto [luma, u, v] = planes.stride;
  std::uint8_t* const y0 = planes.data[0] + std::size_t{line} * m_evenWidth;
  const std::size_t chroma = std::size_t{line} / 2 * (m_evenWidth / 2);
  if (m_layout == ColorSpace::kYuy2) {
    libyuv::YUY2ToI420(source, stride, y0, luma, planes.data[1] + chroma, u, planes.data[2] + chroma, v,
                       width, 2);
  } else {
    // A negative height makes libyuv flip the two lines.
    libyuv::ARGBToI420(source, stride, y0, luma, planes.data[1] + chroma, u, planes.data[2] + chroma, v,
                       width, -2);
  }
}

Planes I420Converter::BufferPlanes() const {
  const std::size_t luma = std::size_t{m_evenWidth} * m_evenHeight;
  const auto stride = static_cast<int>(m_evenWidth);
  return {{m_buffer->data, m_buffer->data + luma, m_buffer->data + luma + luma / 4},
          {stride, stride / 2, stride / 2}};
}

Planes I420Converter::FramePlanes(std::uint8_t* bytes) const {
  const std::size_t luma = std::size_t{m_width} * m_height;
  const std::size_t chromaWidth = (std::size_t{m_width} + 1) / 2;
  const std::size_t chroma = chromaWidth * ((std::size_t{m_height} + 1) / 2);
  return {{bytes, bytes + luma, bytes + luma + chroma},
          {static_cast<int>(m_width), static_cast<int>(chromaWidth), static_cast<int>(chromaWidth)}};
}

}  // namespace encoder
