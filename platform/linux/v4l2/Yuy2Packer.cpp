#include "v4l2/Yuy2Packer.h"

#include <libyuv.h>

#include <algorithm>
#include <array>
#include <utility>

namespace v4l2 {

namespace {

enum class Arrangement {
  kPacked,      // two pixels in four bytes
  kSemiPlanar,  // a plane of luma, then one of chroma pairs
  kPlanar,      // a plane of luma, then one of each chroma
};

struct Layout {
  std::uint32_t pixelFormat;
  Arrangement arrangement;
  std::size_t linesPerChromaLine;
  // Packed formats: the position of each byte of YUY2 in its group of four.
  std::array<std::uint8_t, 4> order;
  bool isVFirst;  // other formats: V precedes U
};

constexpr std::array<std::uint8_t, 4> kNoOrder{};

constexpr std::array kLayouts{
    Layout{V4L2_PIX_FMT_YUYV, Arrangement::kPacked, 1, {0, 1, 2, 3}, false},
    Layout{V4L2_PIX_FMT_YVYU, Arrangement::kPacked, 1, {0, 3, 2, 1}, false},
    Layout{V4L2_PIX_FMT_UYVY, Arrangement::kPacked, 1, {1, 0, 3, 2}, false},
    Layout{V4L2_PIX_FMT_VYUY, Arrangement::kPacked, 1, {1, 2, 3, 0}, false},
    Layout{V4L2_PIX_FMT_NV12, Arrangement::kSemiPlanar, 2, kNoOrder, false},
    Layout{V4L2_PIX_FMT_NV21, Arrangement::kSemiPlanar, 2, kNoOrder, true},
    Layout{V4L2_PIX_FMT_NV16, Arrangement::kSemiPlanar, 1, kNoOrder, false},
    Layout{V4L2_PIX_FMT_NV61, Arrangement::kSemiPlanar, 1, kNoOrder, true},
    Layout{V4L2_PIX_FMT_YUV420, Arrangement::kPlanar, 2, kNoOrder, false},
    Layout{V4L2_PIX_FMT_YVU420, Arrangement::kPlanar, 2, kNoOrder, true},
    Layout{V4L2_PIX_FMT_YUV422P, Arrangement::kPlanar, 1, kNoOrder, false},
};

const Layout* FindLayout(std::uint32_t pixelFormat) {
  const auto* const found =
      std::find_if(kLayouts.begin(), kLayouts.end(),
                   [pixelFormat](const Layout& layout) { return layout.pixelFormat == pixelFormat; });
  return found == kLayouts.end() ? nullptr : found;
}

// Requires CanPackAsYuy2(pixelFormat).
const Layout& LayoutOf(std::uint32_t pixelFormat) { return *FindLayout(pixelFormat); }

constexpr std::size_t kPackedBytesPerPixel = 2;

// Some drivers do not set bytesperline.
std::size_t StrideOf(const v4l2_pix_format& format) {
  const bool isPacked = LayoutOf(format.pixelformat).arrangement == Arrangement::kPacked;
  return std::max<std::size_t>(format.bytesperline,
                               (isPacked ? kPackedBytesPerPixel : 1) * std::size_t{format.width});
}

}  // namespace

bool CanPackAsYuy2(std::uint32_t pixelFormat) { return FindLayout(pixelFormat) != nullptr; }

Yuy2Packer::Yuy2Packer(const v4l2_pix_format& format)
    : m_pixelFormat(format.pixelformat),
      m_width(format.width),
      m_height(format.height),
      m_stride(StrideOf(format)) {
  const bool isYuy2Already = m_pixelFormat == V4L2_PIX_FMT_YUYV && m_stride == kPackedBytesPerPixel * m_width;
  m_packed.resize(isYuy2Already ? 0 : PackedBytes());
  if (LayoutOf(m_pixelFormat).arrangement == Arrangement::kSemiPlanar) {
    m_chroma.resize(m_width * ChromaLines());
  }
}

std::size_t Yuy2Packer::ChromaLines() const {
  const std::size_t lines = LayoutOf(m_pixelFormat).linesPerChromaLine;
  return (m_height + lines - 1) / lines;
}

std::size_t Yuy2Packer::SourceBytes() const {
  const std::size_t luma = m_stride * m_height;
  switch (LayoutOf(m_pixelFormat).arrangement) {
    case Arrangement::kPacked:
      return luma - m_stride + kPackedBytesPerPixel * m_width;
    case Arrangement::kSemiPlanar:
      return luma + m_stride * (ChromaLines() - 1) + m_width;
    case Arrangement::kPlanar:
      return luma + m_stride / 2 * (2 * ChromaLines() - 1) + m_width / 2;
  }
  return 0;
}

std::uint8_t* Yuy2Packer::Pack(std::uint8_t* source) {
  if (m_packed.empty()) {
    return source;
  }
  const Layout& layout = LayoutOf(m_pixelFormat);
  const auto stride = static_cast<int>(m_stride);
  const auto packedStride = static_cast<int>(kPackedBytesPerPixel * m_width);
  const auto width = static_cast<int>(m_width);
  const auto height = static_cast<int>(m_height);
  if (m_pixelFormat == V4L2_PIX_FMT_YUYV) {
    libyuv::CopyPlane(source, stride, m_packed.data(), packedStride, packedStride, height);
  } else if (layout.arrangement == Arrangement::kPacked) {
    // ARGBShuffle permutes groups of four bytes; its pattern covers four groups.
    std::array<std::uint8_t, 16> pattern{};
    for (std::size_t i = 0; i < pattern.size(); ++i) {
      pattern.at(i) = static_cast<std::uint8_t>(i / 4 * 4 + layout.order.at(i % 4));
    }
    libyuv::ARGBShuffle(source, stride, m_packed.data(), packedStride, pattern.data(), width / 2, height);
  } else {
    PackPlanes(source, m_packed.data());
  }
  return m_packed.data();
}

void Yuy2Packer::PackPlanes(const std::uint8_t* source, std::uint8_t* target) {
  const Layout& layout = LayoutOf(m_pixelFormat);
  const auto width = static_cast<int>(m_width);
  const auto chromaLines = static_cast<int>(ChromaLines());
  const std::uint8_t* const chroma = source + m_stride * m_height;
  const std::uint8_t* u = chroma;
  const std::uint8_t* v = chroma + m_stride / 2 * ChromaLines();
  auto chromaStride = static_cast<int>(m_stride / 2);
  if (layout.arrangement == Arrangement::kSemiPlanar) {
    std::uint8_t* const first = m_chroma.data();
    std::uint8_t* const second = first + m_width / 2 * ChromaLines();
    chromaStride = width / 2;
    libyuv::SplitUVPlane(chroma, static_cast<int>(m_stride), first, chromaStride, second, chromaStride,
                         width / 2, chromaLines);
    u = first;
    v = second;
  }
  if (layout.isVFirst) {
    std::swap(u, v);
  }
  const auto pack = layout.linesPerChromaLine == 2 ? &libyuv::I420ToYUY2 : &libyuv::I422ToYUY2;
  pack(source, static_cast<int>(m_stride), u, chromaStride, v, chromaStride, target,
       static_cast<int>(kPackedBytesPerPixel * m_width), width, static_cast<int>(m_height));
}

}  // namespace v4l2
