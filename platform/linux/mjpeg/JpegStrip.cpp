#include "mjpeg/JpegStrip.h"

#include <libyuv.h>

namespace {

// Samples to limited range in fixed point, of 256: luma by 219 / 255 from 16 on, chroma by 224 / 255 around
// 128. The ends of one range become those of the other.
struct Range {
  std::uint16_t factor;
  std::uint16_t offset;
};
constexpr std::uint16_t kHalf = 128;  // rounds
constexpr Range kLuma{220, (16U << 8U) + kHalf};
constexpr Range kChroma{225, (128U << 8U) - 128U * 225U + kHalf};
constexpr std::uint16_t kLow = 0x00FF;
constexpr std::uint16_t kHigh = 0xFF00;

// Two samples a word and a whole number of words a time: what compilers make vector instructions of.
constexpr std::size_t kPairsAtOnce = 16;

// Not a bit wider than a word at any step: compilers would take wider vectors.
constexpr std::uint16_t Limited(std::uint16_t sample, Range range) {
  const auto product = static_cast<std::uint16_t>(sample * range.factor);
  return static_cast<std::uint16_t>(product + range.offset);
}
static_assert(Limited(0, kLuma) >> 8U == 16 && Limited(255, kLuma) >> 8U == 235);
static_assert(Limited(0, kChroma) >> 8U == 16 && Limited(255, kChroma) >> 8U == 240);
static_assert(Limited(128, kChroma) >> 8U == 128);

void Limit(std::uint16_t* pairs, std::size_t count, Range range) {
  for (std::size_t at = 0; at < count; at += kPairsAtOnce) {
    for (std::size_t i = 0; i < kPairsAtOnce; ++i) {
      const std::uint16_t pair = pairs[at + i];
      const auto low = static_cast<std::uint16_t>(Limited(pair & kLow, range) >> 8U);
      const auto high = static_cast<std::uint16_t>(Limited(pair >> 8U, range) & kHigh);
      pairs[at + i] = low | high;
    }
  }
}

constexpr std::size_t RoundUp(std::size_t value, std::size_t step) {
  return (value + step - 1) / step * step;
}

}  // namespace

JpegStrip::JpegStrip(int width)
    : m_width(static_cast<std::size_t>(width)),
      // Whole MCUs, and whole pairs to be limited at once, in every row.
      m_chromaStride(RoundUp(m_width / 2, 2 * kPairsAtOnce)),
      m_samples(kRows * 2 * m_chromaStride) {
  // Bytes may be seen in words, not words in bytes.
  auto* const y = reinterpret_cast<std::uint8_t*>(m_samples.data());
  FillRows(m_v, FillRows(m_u, FillRows(m_y, y, 2 * m_chromaStride), m_chromaStride), m_chromaStride);
}

std::uint8_t* JpegStrip::FillRows(Rows& rows, std::uint8_t* start, std::size_t stride) {
  for (JSAMPROW& row : rows) {
    row = start;
    start += stride;
  }
  return start;
}

bool JpegStrip::HoldsPlanesOf(const jpeg_decompress_struct& jpeg) {
  if (jpeg.jpeg_color_space != JCS_YCbCr || jpeg.num_components != 3 ||
      jpeg.comps_in_scan != jpeg.num_components || jpeg.progressive_mode != FALSE) {
    return false;
  }
  const jpeg_component_info& luma = jpeg.comp_info[0];
  const jpeg_component_info& cb = jpeg.comp_info[1];
  const jpeg_component_info& cr = jpeg.comp_info[2];
  const bool isLumaKnown = luma.h_samp_factor == 2 && (luma.v_samp_factor == 1 || luma.v_samp_factor == 2);
  const bool isChromaKnown = cb.h_samp_factor == 1 && cr.h_samp_factor == 1 &&
                             cb.v_samp_factor == cr.v_samp_factor &&
                             (cb.v_samp_factor == 1 || cb.v_samp_factor == luma.v_samp_factor);
  return isLumaKnown && isChromaKnown;
}

void JpegStrip::PackPlanes(int lumaRows, int chromaRows, int lines, std::uint8_t* yuy2, std::size_t stride) {
  const std::size_t chromaPairs = static_cast<std::size_t>(chromaRows) * m_chromaStride / 2;
  std::uint16_t* const u = m_samples.data() + kRows * m_chromaStride;
  Limit(m_samples.data(), static_cast<std::size_t>(lumaRows) * m_chromaStride, kLuma);
  Limit(u, chromaPairs, kChroma);
  Limit(u + kRows * m_chromaStride / 2, chromaPairs, kChroma);
  const auto chromaStride = static_cast<int>(m_chromaStride);
  const auto pack = lumaRows == chromaRows ? &libyuv::I422ToYUY2 : &libyuv::I420ToYUY2;
  pack(m_y[0], 2 * chromaStride, m_u[0], chromaStride, m_v[0], chromaStride, yuy2, static_cast<int>(stride),
       static_cast<int>(m_width), lines);
}

void JpegStrip::PackBgra(int lines, std::uint8_t* yuy2, std::size_t stride) {
  libyuv::ARGBToYUY2(Bgra(), static_cast<int>(BgraStride()), yuy2, static_cast<int>(stride),
                     static_cast<int>(m_width), lines);
}
