#include "support/linux/TestJpegs.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <random>
#include <stdexcept>

#include <jpeglib.h>

namespace linux_support {
namespace {

constexpr std::uint8_t kMarker = 0xFF;
constexpr std::uint8_t kHuffmanTable = 0xC4;
constexpr std::uint8_t kStartOfScan = 0xDA;

// Sequential scans with all coefficients of one component each.
constexpr std::array<jpeg_scan_info, 3> kSingleComponentScans{
    {{1, {0}, 0, 63, 0, 0}, {1, {1}, 0, 63, 0, 0}, {1, {2}, 0, 63, 0, 0}}};

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

// configure changes the encoder's settings, paint draws a line.
template <typename Configure, typename Paint>
std::vector<std::uint8_t> CompressLines(unsigned width, unsigned height, J_COLOR_SPACE colours,
                                        Configure&& configure, Paint&& paint) {
  jpeg_compress_struct compress{};
  jpeg_error_mgr errors{};
  compress.err = jpeg_std_error(&errors);
  jpeg_create_compress(&compress);
  unsigned char* bytes = nullptr;
  unsigned long size = 0;
  jpeg_mem_dest(&compress, &bytes, &size);
  compress.image_width = width;
  compress.image_height = height;
  compress.input_components = colours == JCS_GRAYSCALE ? 1 : 3;
  compress.in_color_space = colours;
  jpeg_set_defaults(&compress);
  configure(compress);
  jpeg_start_compress(&compress, TRUE);
  std::vector<std::uint8_t> line(std::size_t{3} * width);
  for (unsigned y = 0; y < height; ++y) {
    paint(y, line.data());
    JSAMPROW row = line.data();
    jpeg_write_scanlines(&compress, &row, 1);
  }
  jpeg_finish_compress(&compress);
  jpeg_destroy_compress(&compress);
  const std::unique_ptr<unsigned char, decltype(&std::free)> owner(bytes, &std::free);
  return {bytes, bytes + size};
}

// The size of the segment at an offset, including its marker.
std::size_t SegmentSize(const Jpeg& jpeg, std::size_t at) {
  return std::size_t{2} + (std::size_t{jpeg.at(at + 2)} << 8) + jpeg.at(at + 3);
}

}  // namespace

Jpeg TestJpeg(int width, int height, TJSAMP subsampling) {
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

Jpeg NoiseJpeg(int width, int height, TJSAMP subsampling) {
  std::mt19937 random(1);
  std::vector<std::uint8_t> bgra(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4);
  for (std::uint8_t& value : bgra) {
    value = static_cast<std::uint8_t>(random() & 0xFF);
  }
  return Compress(bgra, width, height, subsampling, 50);
}

Jpeg RestartJpeg(unsigned width, unsigned height) {
  const auto configure = [](jpeg_compress_struct& compress) { compress.restart_in_rows = 1; };
  const auto paint = [width](unsigned y, std::uint8_t* line) {
    for (unsigned x = 0; x < width; ++x) {
      line[x] = static_cast<std::uint8_t>((x * 37 + y * 91 + x * y * 13) & 0xFF);
    }
  };
  return CompressLines(width, height, JCS_GRAYSCALE, configure, paint);
}

Jpeg WaveJpeg(unsigned width, unsigned height, const JpegCoding& coding) {
  const auto configure = [&coding](jpeg_compress_struct& compress) {
    jpeg_set_quality(&compress, 92, TRUE);
    if (coding.isRgb) {
      jpeg_set_colorspace(&compress, JCS_RGB);
    }
    compress.comp_info[0].h_samp_factor = coding.lumaHorizontal;
    compress.comp_info[0].v_samp_factor = coding.lumaVertical;
    compress.comp_info[1].h_samp_factor = coding.cbHorizontal;
    compress.comp_info[1].v_samp_factor = coding.chromaVertical;
    compress.comp_info[2].h_samp_factor = coding.crHorizontal;
    compress.comp_info[2].v_samp_factor = coding.crVertical != 0 ? coding.crVertical : coding.chromaVertical;
    compress.arith_code = coding.isArithmetic ? TRUE : FALSE;
    if (coding.isProgressive) {
      jpeg_simple_progression(&compress);
    }
    if (coding.isMultiScan) {
      compress.scan_info = kSingleComponentScans.data();
      compress.num_scans = static_cast<int>(kSingleComponentScans.size());
    }
  };
  const auto paint = [width](unsigned y, std::uint8_t* line) {
    for (unsigned x = 0; x < width; ++x, line += 3) {
      const double texture = 12 * std::sin(x * 1.1 + y * 0.7);
      line[0] = static_cast<std::uint8_t>(128 + 70 * std::sin(x * 0.06 + y * 0.03) + texture);
      line[1] = static_cast<std::uint8_t>(128 + 60 * std::sin(y * 0.08 - x * 0.02 + 1) + texture);
      line[2] = static_cast<std::uint8_t>(128 + 70 * std::sin((x + y) * 0.05 + 2) + texture);
    }
  };
  return CompressLines(width, height, JCS_RGB, configure, paint);
}

namespace {

Pixels Decode(const Jpeg& jpeg, boolean interpolatesChroma) {
  jpeg_decompress_struct decompress{};
  jpeg_error_mgr errors{};
  decompress.err = jpeg_std_error(&errors);
  jpeg_create_decompress(&decompress);
  jpeg_mem_src(&decompress, jpeg.data(), jpeg.size());
  jpeg_read_header(&decompress, TRUE);
  decompress.out_color_space = JCS_EXT_BGRA;
  decompress.do_fancy_upsampling = interpolatesChroma;
  jpeg_start_decompress(&decompress);
  const std::size_t line = std::size_t{4} * decompress.output_width;
  Pixels bgra(line * decompress.output_height);
  while (decompress.output_scanline < decompress.output_height) {
    JSAMPROW row = bgra.data() + decompress.output_scanline * line;
    jpeg_read_scanlines(&decompress, &row, 1);
  }
  jpeg_finish_decompress(&decompress);
  jpeg_destroy_decompress(&decompress);
  return bgra;
}

}  // namespace

Pixels DecodeWithLibjpegDefaults(const Jpeg& jpeg) { return Decode(jpeg, TRUE); }

Pixels DecodeWithRepeatedChroma(const Jpeg& jpeg) { return Decode(jpeg, FALSE); }

Jpeg WithoutHuffmanTables(const Jpeg& jpeg) {
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

std::size_t ScanStart(const Jpeg& jpeg) {
  std::size_t at = 2;
  while (jpeg.at(at + 1) != kStartOfScan) {
    at += SegmentSize(jpeg, at);
  }
  return at + SegmentSize(jpeg, at);
}

}  // namespace linux_support
