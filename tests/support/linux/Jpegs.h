// JPEG pictures as webcams send them.
#pragma once

#include <cstdint>
#include <vector>

#include <turbojpeg.h>

struct Colour {
  std::uint8_t r = 0;
  std::uint8_t g = 0;
  std::uint8_t b = 0;
};

// The quarters of the test picture.
inline constexpr Colour kTopLeft{255, 0, 0};
inline constexpr Colour kTopRight{0, 255, 0};
inline constexpr Colour kBottomLeft{0, 0, 255};
inline constexpr Colour kBottomRight{255, 255, 255};

// The test picture in high quality.
std::vector<std::uint8_t> TestJpeg(int width, int height, TJSAMP subsampling = TJSAMP_422);
// Noise, which compresses badly: what is cut off or damaged is sure to be picture data.
std::vector<std::uint8_t> NoiseJpeg(int width, int height, TJSAMP subsampling = TJSAMP_422);

// How a picture is coded: sampling factors of luma, and down of both chromas, which have one across.
struct Coding {
  const char* name = "";
  int lumaAcross = 2;
  int lumaDown = 1;
  int chromaDown = 1;
  bool isProgressive = false;
  bool isInScans = false;  // each component after the other
  bool isRgb = false;
};
// Gentle waves of colour, none at its limits, with some texture in their brightness.
std::vector<std::uint8_t> WavesJpeg(unsigned width, unsigned height, const Coding& coding);
// The picture as libjpeg decodes it with everything at its default: BGRA, top-down.
std::vector<std::uint8_t> DecodedByDefault(const std::vector<std::uint8_t>& jpeg);

// Grey, with a restart marker after each row of blocks.
std::vector<std::uint8_t> RestartJpeg(unsigned width, unsigned height);

// Without the Huffman tables, which are then the standard's own.
std::vector<std::uint8_t> WithoutHuffmanTables(const std::vector<std::uint8_t>& jpeg);
// Where the entropy-coded data begins.
std::size_t ScanStart(const std::vector<std::uint8_t>& jpeg);
