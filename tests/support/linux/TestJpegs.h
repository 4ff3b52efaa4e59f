// JPEG pictures for the MJPEG tests.
#pragma once

#include <cstdint>
#include <vector>

#include <turbojpeg.h>

namespace linux_support {

using Jpeg = std::vector<std::uint8_t>;
using Pixels = std::vector<std::uint8_t>;

struct Colour {
  std::uint8_t r = 0;
  std::uint8_t g = 0;
  std::uint8_t b = 0;
};

// The quadrants of the test picture.
inline constexpr Colour kTopLeft{255, 0, 0};
inline constexpr Colour kTopRight{0, 255, 0};
inline constexpr Colour kBottomLeft{0, 0, 255};
inline constexpr Colour kBottomRight{255, 255, 255};

// The test picture in high quality.
Jpeg TestJpeg(int width, int height, TJSAMP subsampling = TJSAMP_422);
// Noise compresses badly, so almost the whole file is scan data.
Jpeg NoiseJpeg(int width, int height, TJSAMP subsampling = TJSAMP_422);

// Sampling factors and coding mode.
struct JpegCoding {
  const char* name = "";
  int lumaHorizontal = 2;
  int lumaVertical = 1;
  int chromaVertical = 1;
  bool isProgressive = false;
  bool isMultiScan = false;  // sequential, one scan for each component
  bool isRgb = false;
  int cbHorizontal = 1;
  int crHorizontal = 1;
  int crVertical = 0;  // 0: chromaVertical
  bool isArithmetic = false;
};
// Smooth colour waves with some luma texture, without saturated values.
Jpeg WaveJpeg(unsigned width, unsigned height, const JpegCoding& coding);
// The picture decoded with libjpeg's default settings, which interpolate chroma: BGRA, top-down.
Pixels DecodeWithLibjpegDefaults(const Jpeg& jpeg);
// The same with repeated instead of interpolated chroma.
Pixels DecodeWithRepeatedChroma(const Jpeg& jpeg);

// Greyscale with a restart marker after each row of blocks.
Jpeg RestartJpeg(unsigned width, unsigned height);

// Removes the Huffman tables; decoders then use the tables of the standard's annex K.
Jpeg WithoutHuffmanTables(const Jpeg& jpeg);
// The offset of the entropy-coded data.
std::size_t ScanStart(const Jpeg& jpeg);

}  // namespace linux_support
