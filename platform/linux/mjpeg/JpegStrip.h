// Some lines of a JPEG picture on their way to YUY2 (BT.601 with limited range): few enough to stay in the
// cache between one step and the next.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>  // jpeglib.h takes it for granted
#include <vector>

#include <jpeglib.h>

class JpegStrip {
 public:
  static constexpr int kBgraLines = 8;

  // For pictures of that width, which is even; 0 for a strip that is not used. Throws std::bad_alloc.
  explicit JpegStrip(int width);
  JpegStrip(const JpegStrip&) = delete;
  JpegStrip& operator=(const JpegStrip&) = delete;
  ~JpegStrip() = default;

  // Whether a row of the picture's MCUs fits in as it is coded: 4:2:2 or 4:2:0 in one scan. To be asked when
  // the header has been read.
  static bool HoldsPlanesOf(const jpeg_decompress_struct& jpeg);

  // Where such a row goes; the other strip is overwritten.
  JSAMPIMAGE Planes() { return m_planes.data(); }
  // Packs its upper lines, once: the planes are used up. chromaRows is for the whole row of MCUs, and so is
  // lumaRows.
  void PackPlanes(int lumaRows, int chromaRows, int lines, std::uint8_t* yuy2, std::size_t stride);

  // The same memory for up to kBgraLines lines of BGRA, without gaps.
  std::uint8_t* Bgra() { return m_planes[0][0]; }
  std::size_t BgraStride() const { return std::size_t{4} * m_width; }
  void PackBgra(int lines, std::uint8_t* yuy2, std::size_t stride);

 private:
  static constexpr std::size_t kRows = std::size_t{2} * DCTSIZE;
  using Rows = std::array<JSAMPROW, kRows>;

  static std::uint8_t* FillRows(Rows& rows, std::uint8_t* start, std::size_t stride);

  std::size_t m_width;
  std::size_t m_chromaStride;            // of luma: twice that
  std::vector<std::uint16_t> m_samples;  // two each
  Rows m_y{};
  Rows m_u{};
  Rows m_v{};
  std::array<JSAMPARRAY, 3> m_planes{m_y.data(), m_u.data(), m_v.data()};
};
