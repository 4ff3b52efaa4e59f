#include "Jpegs.h"

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>
#include <stdexcept>

#include <jpeglib.h>

namespace {

constexpr std::uint8_t kMarker = 0xFF;
constexpr std::uint8_t kHuffmanTable = 0xC4;
constexpr std::uint8_t kStartOfScan = 0xDA;

std::vector<std::uint8_t> Compress(const std::vector<std::uint8_t>& bgra, int width, int height,
                                   TJSAMP subsampling, int quality) {
  const std::unique_ptr<void, decltype(&tjDestroy)> handle(tjInitCompress(), &tjDestroy);
  unsigned char* bytes = nullptr;
  unsigned long size = 0;
  const int result = tjCompress2(handle.get(), bgra.data(), width, 0, height, TJPF_BGRA, &bytes, &size,
                                 subsampling, quality, TJFLAG_ACCURATEDCT);
  const std::unique_ptr<unsigned char, decltype(&tjFree)> owner(bytes, &tjFree);
  if (result != 0) {
    throw std::runtime_error(tjGetErrorStr2(handle.get()));
  }
  return {bytes, bytes + size};
}

// Size of the segment at that place, with its marker.
std::size_t SegmentSize(const std::vector<std::uint8_t>& jpeg, std::size_t at) {
  return std::size_t{2} + (std::size_t{jpeg.at(at + 2)} << 8) + jpeg.at(at + 3);
}

}  // namespace

std::vector<std::uint8_t> TestJpeg(int width, int height, TJSAMP subsampling) {
  std::vector<std::uint8_t> bgra;
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      const bool isLeft = x < width / 2;
      const Colour colour =
          y < height / 2 ? (isLeft ? kTopLeft : kTopRight) : (isLeft ? kBottomLeft : kBottomRight);
      bgra.insert(bgra.end(), {colour.b, colour.g, colour.r, 255});
    }
  }
  return Compress(bgra, width, height, subsampling, 100);
}

std::vector<std::uint8_t> NoiseJpeg(int width, int height) {
  std::mt19937 random(1);
  std::vector<std::uint8_t> bgra(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4);
  for (std::uint8_t& value : bgra) {
    value = static_cast<std::uint8_t>(random() & 0xFF);
  }
  return Compress(bgra, width, height, TJSAMP_422, 50);
}

std::vector<std::uint8_t> RestartJpeg(unsigned width, unsigned height) {
  jpeg_compress_struct compress{};
  jpeg_error_mgr errors{};
  compress.err = jpeg_std_error(&errors);
  jpeg_create_compress(&compress);
  unsigned char* bytes = nullptr;
  unsigned long size = 0;
  jpeg_mem_dest(&compress, &bytes, &size);
  compress.image_width = width;
  compress.image_height = height;
  compress.input_components = 1;
  compress.in_color_space = JCS_GRAYSCALE;
  jpeg_set_defaults(&compress);
  compress.restart_in_rows = 1;
  jpeg_start_compress(&compress, TRUE);
  std::vector<std::uint8_t> line(width);
  for (unsigned y = 0; y < height; ++y) {
    for (unsigned x = 0; x < width; ++x) {
      line[x] = static_cast<std::uint8_t>((x * 37 + y * 91 + x * y * 13) & 0xFF);
    }
    JSAMPROW row = line.data();
    jpeg_write_scanlines(&compress, &row, 1);
  }
  jpeg_finish_compress(&compress);
  jpeg_destroy_compress(&compress);
  const std::unique_ptr<unsigned char, decltype(&std::free)> owner(bytes, &std::free);
  return {bytes, bytes + size};
}

std::vector<std::uint8_t> WithoutHuffmanTables(const std::vector<std::uint8_t>& jpeg) {
  std::vector<std::uint8_t> stripped(jpeg.begin(), jpeg.begin() + 2);
  std::size_t at = 2;
  while (jpeg.at(at) == kMarker && jpeg.at(at + 1) != kStartOfScan) {
    const std::size_t size = SegmentSize(jpeg, at);
    if (jpeg.at(at + 1) != kHuffmanTable) {
      const auto from = jpeg.begin() + static_cast<std::ptrdiff_t>(at);
      stripped.insert(stripped.end(), from, from + static_cast<std::ptrdiff_t>(size));
    }
    at += size;
  }
  stripped.insert(stripped.end(), jpeg.begin() + static_cast<std::ptrdiff_t>(at), jpeg.end());
  return stripped;
}

std::size_t ScanStart(const std::vector<std::uint8_t>& jpeg) {
  std::size_t at = 2;
  while (jpeg.at(at + 1) != kStartOfScan) {
    at += SegmentSize(jpeg, at);
  }
  return at + SegmentSize(jpeg, at);
}
