#include "encoder/I420Converter.h"

#include <libyuv.h>

#include <new>

#include "encoder/FrameLayout.h"

namespace encoder {
namespace {

std::unique_ptr<VideoFrame> MakePlanes(std::uint32_t width, std::uint32_t height) {
  auto frame = std::make_unique<VideoFrame>();
  if (!frame->AllocBuffer(width, height, ColorSpace::kI420)) {
    throw std::bad_alloc();
  }
  return frame;
}

// Another thread has just written the frame, so that it is in no cache of this one, and what processors fetch
// ahead by themselves ends at a page. Asked for early the lines are there when their turn comes.
void FetchAhead(const std::uint8_t* bytes, std::uint64_t count) {
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

PictureConverter::PictureConverter(std::uint32_t width, std::uint32_t height, ColorSpace layout)
    : m_width(width),
      m_height(height),
      m_layout(layout),
      m_evenWidth(width & ~1U),
      m_evenHeight(height & ~1U),
      m_own(layout == ColorSpace::kI420 ? nullptr : MakePlanes(m_evenWidth, m_evenHeight)) {}

Planes PictureConverter::Convert(std::uint8_t* bytes) {
  if (m_layout == ColorSpace::kI420) {
    return FramePlanes(bytes);
  }
  const Planes planes = OwnPlanes();
  const std::uint64_t pairBytes = 2 * LineBytes(m_width, m_layout);
  const bool isBottomUp = m_layout == ColorSpace::kArgb32;
  // Bottom-up, the line that an odd height has too many, the lowest of the picture, is the first in memory.
  const std::uint8_t* pair =
      bytes + (isBottomUp ? (m_height - m_evenHeight) * LineBytes(m_width, m_layout) : 0);
  // In the order in which memory has them, whichever way up the picture is.
  for (std::uint32_t line = 0; line < m_evenHeight; line += 2, pair += pairBytes) {
    if (line + 2 < m_evenHeight) {
      FetchAhead(pair + pairBytes, pairBytes);
    }
    ConvertPair(pair, planes, isBottomUp ? m_evenHeight - 2 - line : line);
  }
  return planes;
}

void PictureConverter::ConvertPair(const std::uint8_t* pair, const Planes& planes, std::uint32_t line) const {
  const auto stride = static_cast<int>(LineBytes(m_width, m_layout));
  const auto width = static_cast<int>(m_evenWidth);
  const auto [luma, u, v] = planes.stride;
  std::uint8_t* const y0 = planes.data[0] + std::size_t{line} * m_evenWidth;
  const std::size_t chroma = std::size_t{line} / 2 * (m_evenWidth / 2);
  if (m_layout == ColorSpace::kYuy2) {
    libyuv::YUY2ToI420(pair, stride, y0, luma, planes.data[1] + chroma, u, planes.data[2] + chroma, v, width,
                       2);
  } else {
    // A negative height turns the two over.
    libyuv::ARGBToI420(pair, stride, y0, luma, planes.data[1] + chroma, u, planes.data[2] + chroma, v, width,
                       -2);
  }
}

Planes PictureConverter::OwnPlanes() const {
  const std::size_t luma = std::size_t{m_evenWidth} * m_evenHeight;
  const auto stride = static_cast<int>(m_evenWidth);
  return {{m_own->data, m_own->data + luma, m_own->data + luma + luma / 4}, {stride, stride / 2, stride / 2}};
}

Planes PictureConverter::FramePlanes(std::uint8_t* bytes) const {
  const std::size_t luma = std::size_t{m_width} * m_height;
  const std::size_t chromaWidth = (std::size_t{m_width} + 1) / 2;
  const std::size_t chroma = chromaWidth * ((std::size_t{m_height} + 1) / 2);
  return {{bytes, bytes + luma, bytes + luma + chroma},
          {static_cast<int>(m_width), static_cast<int>(chromaWidth), static_cast<int>(chromaWidth)}};
}

}  // namespace encoder
