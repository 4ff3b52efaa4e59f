// Cost of decoding a camera's JPEG pictures to ARGB32: the platform's decoder, compared in the same run with
// reading libjpeg's BGRA lines one by one with its default settings. Also the path from a JPEG picture to the
// encoder's I420, with the copy into the frame pool, through BGRA as in the product and without BGRA.
//
//   build/native/bin/mjpeg_bench --benchmark_repetitions=9 --benchmark_enable_random_interleaving=true
//
// Absolute times depend on the machine and its load; compare results of the same run only.
#include <benchmark/benchmark.h>
#include <libyuv.h>
#include <turbojpeg.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <vector>

#include "Clip.h"
#include "Failures.h"
#include "encoder/I420Converter.h"
#include "mjpeg/MjpegDecoder.h"

#include <cstdio>  // required by jpeglib.h

#include <jpeglib.h>

namespace bench {
namespace {

using Bytes = std::vector<std::uint8_t>;

// About one bit per pixel, as from a webcam.
constexpr int kQuality = 85;
constexpr int kFrames = 8;

struct Pictures {
  int width;
  int height;
  std::vector<Bytes> jpegs;
};

// Arguments: width, height, sampling (422 or 420).
Pictures MakePictures(const benchmark::State& state) {
  Pictures pictures{static_cast<int>(state.range(0)), static_cast<int>(state.range(1)), {}};
  const TJSAMP sampling = state.range(2) == 420 ? TJSAMP_420 : TJSAMP_422;
  const std::unique_ptr<void, decltype(&tjDestroy)> handle(tjInitCompress(), &tjDestroy);
  for (const auto& frame : MakeClip(pictures.width, pictures.height, ColorSpace::kArgb32, kFrames)) {
    unsigned char* bytes = nullptr;
    unsigned long size = 0;
    const int result = tjCompress2(handle.get(), frame->data, pictures.width, 0, pictures.height, TJPF_BGRA,
                                   &bytes, &size, sampling, kQuality, TJFLAG_BOTTOMUP);
    const std::unique_ptr<unsigned char, decltype(&tjFree)> owner(bytes, &tjFree);
    if (result != 0) {
      throw std::runtime_error(tjGetErrorStr2(handle.get()));
    }
    pictures.jpegs.emplace_back(bytes, bytes + size);
  }
  return pictures;
}

class LineDecoder {
 public:
  LineDecoder(int width, int height)
      : m_width(width),
        m_bgra(std::size_t{4} * static_cast<std::size_t>(width) * static_cast<std::size_t>(height)) {
    m_jpeg.err = jpeg_std_error(&m_errors);
    jpeg_create_decompress(&m_jpeg);
  }
  LineDecoder(const LineDecoder&) = delete;
  LineDecoder& operator=(const LineDecoder&) = delete;
  ~LineDecoder() { jpeg_destroy_decompress(&m_jpeg); }

  void Decode(const Bytes& jpeg) {
    jpeg_mem_src(&m_jpeg, jpeg.data(), jpeg.size());
    jpeg_read_header(&m_jpeg, TRUE);
    m_jpeg.out_color_space = JCS_EXT_BGRA;
    jpeg_start_decompress(&m_jpeg);
    while (m_jpeg.output_scanline < m_jpeg.output_height) {
      const JDIMENSION line = m_jpeg.output_height - 1 - m_jpeg.output_scanline;
      JSAMPROW row = m_bgra.data() + std::size_t{line} * 4 * static_cast<std::size_t>(m_width);
      jpeg_read_scanlines(&m_jpeg, &row, 1);
    }
    jpeg_finish_decompress(&m_jpeg);
  }

 private:
  int m_width;
  Bytes m_bgra;
  jpeg_error_mgr m_errors{};
  jpeg_decompress_struct m_jpeg{};
};

void Decode(benchmark::State& state) {
  const Pictures pictures = MakePictures(state);
  mjpeg::MjpegDecoder decoder(static_cast<std::uint32_t>(pictures.width),
                              static_cast<std::uint32_t>(pictures.height));
  std::size_t next = 0;
  for (auto _ : state) {
    const Bytes& jpeg = pictures.jpegs[next++ % pictures.jpegs.size()];
    graph::FrameConverter::Picture picture;
    if (!decoder.Convert(jpeg.data(), jpeg.size(), picture)) {
      Fail(state, "decoding failed");
      return;
    }
    benchmark::ClobberMemory();
  }
}

void DecodeLineByLine(benchmark::State& state) {
  const Pictures pictures = MakePictures(state);
  LineDecoder decoder(pictures.width, pictures.height);
  std::size_t next = 0;
  for (auto _ : state) {
    decoder.Decode(pictures.jpegs[next++ % pictures.jpegs.size()]);
    benchmark::ClobberMemory();
  }
}

// The frame pool of the library: its memory is cold when a frame is copied into it.
class Pool {
 public:
  explicit Pool(std::size_t bytes) : m_frames(kFrames, Bytes(bytes)) {}
  std::uint8_t* Next() { return m_frames[m_next++ % kFrames].data(); }

 private:
  static constexpr std::size_t kFrames = 5;
  std::vector<Bytes> m_frames;
  std::size_t m_next = 0;
};

void PathThroughBgra(benchmark::State& state) {
  const Pictures pictures = MakePictures(state);
  const auto width = static_cast<std::uint32_t>(pictures.width);
  const auto height = static_cast<std::uint32_t>(pictures.height);
  mjpeg::MjpegDecoder decoder(width, height);
  encoder::I420Converter converter(width, height, ColorSpace::kArgb32);
  Pool pool(std::size_t{4} * width * height);
  std::size_t next = 0;
  for (auto _ : state) {
    const Bytes& jpeg = pictures.jpegs[next++ % pictures.jpegs.size()];
    graph::FrameConverter::Picture picture;
    if (!decoder.Convert(jpeg.data(), jpeg.size(), picture)) {
      Fail(state, "decoding failed");
      return;
    }
    std::uint8_t* const frame = pool.Next();
    std::memcpy(frame, picture.data, picture.size);
    converter.Convert(frame);
    benchmark::ClobberMemory();
  }
}

// The picture stays in planes and keeps JPEG's full range.
void PathWithoutBgra(benchmark::State& state) {
  const Pictures pictures = MakePictures(state);
  const int width = pictures.width;
  const int height = pictures.height;
  const bool is420 = state.range(2) == 420;
  const auto luma = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
  const std::size_t chroma = luma / (is420 ? 4 : 2);
  Bytes decoded(luma + 2 * chroma);
  Bytes i420(luma + luma / 2);
  Pool pool(decoded.size());
  const std::unique_ptr<void, decltype(&tjDestroy)> handle(tjInitDecompress(), &tjDestroy);
  std::size_t next = 0;
  for (auto _ : state) {
    const Bytes& jpeg = pictures.jpegs[next++ % pictures.jpegs.size()];
    if (tjDecompressToYUV2(handle.get(), jpeg.data(), jpeg.size(), decoded.data(), width, 1, height,
                           TJFLAG_ACCURATEDCT) != 0) {
      Fail(state, tjGetErrorStr2(handle.get()));
      return;
    }
    std::uint8_t* const frame = pool.Next();
    std::memcpy(frame, decoded.data(), decoded.size());
    if (!is420) {
      libyuv::I422ToI420(frame, width, frame + luma, width / 2, frame + luma + chroma, width / 2, i420.data(),
                         width, i420.data() + luma, width / 2, i420.data() + luma + luma / 4, width / 2,
                         width, height);
    }
    benchmark::ClobberMemory();
  }
}

void Sizes(benchmark::internal::Benchmark* bench) {
  bench->Unit(benchmark::kMillisecond);
  for (const std::int64_t sampling : {422, 420}) {
    for (const auto& [width, height] : {std::pair{640, 480}, std::pair{1280, 720}, std::pair{1920, 1080}}) {
      bench->Args({width, height, sampling});
    }
  }
}

BENCHMARK(DecodeLineByLine)->Apply(Sizes);
BENCHMARK(Decode)->Apply(Sizes);
BENCHMARK(PathThroughBgra)->Apply(Sizes);
BENCHMARK(PathWithoutBgra)->Apply(Sizes);

}  // namespace
}  // namespace bench

int main(int argc, char** argv) { return bench::RunBenchmarks(argc, argv); }
