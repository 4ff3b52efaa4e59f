#include "simulated/ClipScaler.h"

#include <algorithm>
#include <cmath>
#include <new>
#include <stdexcept>

namespace simulated {
namespace {

// The J formats are deprecated names for full range.
bool IsFullRange(const AVFrame& frame) {
  switch (frame.format) {
    case AV_PIX_FMT_YUVJ420P:
    case AV_PIX_FMT_YUVJ422P:
    case AV_PIX_FMT_YUVJ444P:
    case AV_PIX_FMT_YUVJ440P:
    case AV_PIX_FMT_YUVJ411P:
      return true;
    default:
      return frame.color_range == AVCOL_RANGE_JPEG;
  }
}

// Like most players, assume BT.709 for HD and BT.601 below if the clip does not declare its matrix.
int MatrixOf(const AVFrame& frame) {
  constexpr int kHdHeight = 720;
  if (frame.colorspace != AVCOL_SPC_UNSPECIFIED) {
    return frame.colorspace;
  }
  return frame.height >= kHdHeight ? AVCOL_SPC_BT709 : AVCOL_SPC_SMPTE170M;
}

struct Size {
  int width;
  int height;
};

// The largest size with the aspect ratio that fits into the box. Bars below 1 % are avoided, because sides
// are often rounded: 854x480 stands for 16:9.
Size Fit(double aspectRatio, Size box) {
  constexpr double kMinShare = 0.99;
  double width = std::min<double>(box.width, box.height * aspectRatio);
  double height = width / aspectRatio;
  width = width >= kMinShare * box.width ? box.width : width;
  height = height >= kMinShare * box.height ? box.height : height;
  return {static_cast<int>(std::max(1L, std::lround(width))),
          static_cast<int>(std::max(1L, std::lround(height)))};
}

double AspectRatio(int width, int height, AVRational pixelAspect) {
  const double pixel = pixelAspect.num > 0 && pixelAspect.den > 0 ? av_q2d(pixelAspect) : 1;
  return pixel * width / height;
}

}  // namespace

ClipScaler::ClipScaler(std::uint32_t width, std::uint32_t height)
    : m_width(static_cast<int>(width)), m_height(static_cast<int>(height)) {}

ClipScaler::Source ClipScaler::ReadSource(const AVFrame& frame, AVRational pixelAspect) {
  return {frame.width, frame.height, frame.format, MatrixOf(frame), IsFullRange(frame), pixelAspect};
}

bool ClipScaler::IsSame(const Source& a, const Source& b) {
  return a.width == b.width && a.height == b.height && a.pixelFormat == b.pixelFormat &&
         a.matrix == b.matrix && a.isFullRange == b.isFullRange && a.pixelAspect.num == b.pixelAspect.num &&
         a.pixelAspect.den == b.pixelAspect.den;
}

void ClipScaler::Prepare(const Source& source) {
  m_source = {};
  const Size size = Fit(AspectRatio(source.width, source.height, source.pixelAspect), {m_width, m_height});
  constexpr auto kTarget = AV_PIX_FMT_BGRA;
  m_scaler.reset(sws_getContext(
      source.width, source.height, static_cast<AVPixelFormat>(source.pixelFormat), size.width, size.height,
      kTarget, SWS_BILINEAR | SWS_FULL_CHR_H_INT | SWS_ACCURATE_RND, nullptr, nullptr, nullptr));
  if (!m_scaler) {
    throw std::runtime_error("its pictures cannot be converted");
  }
  // Fails for sources that are not YUV, which do not need it.
  sws_setColorspaceDetails(m_scaler.get(), sws_getCoefficients(source.matrix), source.isFullRange ? 1 : 0,
                           sws_getCoefficients(SWS_CS_DEFAULT), 1, 0, 1 << 16, 1 << 16);
  // Allocated by FFmpeg because the scaler may write a few bytes past the end of a line.
  m_scaled.reset(av_frame_alloc());
  if (!m_scaled) {
    throw std::bad_alloc();
  }
  m_scaled->width = size.width;
  m_scaled->height = size.height;
  m_scaled->format = kTarget;
  if (av_frame_get_buffer(m_scaled.get(), 0) != 0) {
    throw std::bad_alloc();
  }
  m_picture.assign(std::size_t{4} * static_cast<std::size_t>(m_width) * static_cast<std::size_t>(m_height),
                   0);
  m_source = source;
}

const std::vector<std::uint8_t>& ClipScaler::Scale(const AVFrame& frame, AVRational pixelAspect) {
  if (const Source source = ReadSource(frame, pixelAspect); !IsSame(source, m_source)) {
    Prepare(source);
  }
  if (sws_scale(m_scaler.get(), frame.data, frame.linesize, 0, frame.height, m_scaled->data,
                m_scaled->linesize) != m_scaled->height) {
    throw std::runtime_error("its pictures cannot be converted");
  }
  const std::ptrdiff_t line = std::ptrdiff_t{4} * m_width;
  const std::ptrdiff_t left = std::ptrdiff_t{4} * ((m_width - m_scaled->width) / 2);
  const std::ptrdiff_t top = (m_height - m_scaled->height) / 2;
  for (std::ptrdiff_t y = 0; y < m_scaled->height; ++y) {
    const std::uint8_t* const from = m_scaled->data[0] + y * m_scaled->linesize[0];
    std::copy(from, from + std::ptrdiff_t{4} * m_scaled->width, m_picture.begin() + (top + y) * line + left);
  }
  return m_picture;
}

}  // namespace simulated
