// The planes that the encoder reads, byte for byte, whatever the picture: in its first and last lines, too.
#include <gtest/gtest.h>
#include <libyuv.h>

#include <cstddef>
#include <random>
#include <string>
#include <vector>

#include "encoder/FrameLayout.h"
#include "encoder/I420Converter.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

struct Size {
  std::uint32_t width;
  std::uint32_t height;
};

class Conversion : public ::testing::TestWithParam<Size> {};

Bytes Noise(std::uint64_t size) {
  std::minstd_rand random(1);
  Bytes bytes(size);
  for (std::uint8_t& byte : bytes) {
    byte = static_cast<std::uint8_t>(random() >> 8U);
  }
  return bytes;
}

Bytes Packed(const encoder::Planes& planes, int width, int height) {
  Bytes packed;
  for (std::size_t plane = 0; plane < 3; ++plane) {
    const int part = plane == 0 ? 1 : 2;
    for (int y = 0; y < height / part; ++y) {
      const std::uint8_t* const line = planes.data[plane] + std::ptrdiff_t{y} * planes.stride[plane];
      packed.insert(packed.end(), line, line + width / part);
    }
  }
  return packed;
}

// The whole picture in one call of the library that knows how.
Bytes Expected(const Bytes& frame, Size size, ColorSpace layout) {
  const int width = static_cast<int>(size.width & ~1U);
  const int height = static_cast<int>(size.height & ~1U);
  const auto stride = static_cast<int>(encoder::LineBytes(size.width, layout));
  const std::size_t luma = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
  Bytes planes(luma * 3 / 2);
  std::uint8_t* const u = planes.data() + luma;
  std::uint8_t* const v = u + luma / 4;
  if (layout == ColorSpace::kYuy2) {
    libyuv::YUY2ToI420(frame.data(), stride, planes.data(), width, u, width / 2, v, width / 2, width, height);
  } else {
    // The picture's even part ends, bottom-up, with the last line in memory.
    const std::uint8_t* const lowest =
        frame.data() + (size.height % 2) * encoder::LineBytes(size.width, layout);
    libyuv::ARGBToI420(lowest, stride, planes.data(), width, u, width / 2, v, width / 2, width, -height);
  }
  return planes;
}

Bytes Converted(Bytes frame, Size size, ColorSpace layout) {
  encoder::I420Converter converter(size.width, size.height, layout);
  return Packed(converter.Convert(frame.data()), static_cast<int>(converter.EvenWidth()),
                static_cast<int>(converter.EvenHeight()));
}

TEST_P(Conversion, InPairsOfLinesIsThatOfTheWholePicture) {
  for (const ColorSpace layout : {ColorSpace::kYuy2, ColorSpace::kArgb32}) {
    const Bytes frame = Noise(encoder::FrameBytes(GetParam().width, GetParam().height, layout));
    EXPECT_EQ(Converted(frame, GetParam(), layout), Expected(frame, GetParam(), layout));
  }
}

TEST_P(Conversion, LeavesTheFrameAsItIs) {
  for (const ColorSpace layout : {ColorSpace::kI420, ColorSpace::kYuy2, ColorSpace::kArgb32}) {
    const Bytes before = Noise(encoder::FrameBytes(GetParam().width, GetParam().height, layout));
    Bytes frame = before;
    encoder::I420Converter converter(GetParam().width, GetParam().height, layout);
    converter.Convert(frame.data());
    EXPECT_EQ(frame, before);
  }
}

std::string Name(const ::testing::TestParamInfo<Size>& size) {
  return std::to_string(size.param.width) + "x" + std::to_string(size.param.height);
}

INSTANTIATE_TEST_SUITE_P(Sizes, Conversion,
                         ::testing::Values(Size{16, 16}, Size{17, 17}, Size{18, 19}, Size{322, 240},
                                           Size{641, 480}, Size{1280, 720}),
                         Name);

}  // namespace
