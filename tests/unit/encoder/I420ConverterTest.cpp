// I420Converter: its output is identical to that of libyuv, including the first and the last lines.
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

struct FrameSize {
  std::uint32_t width;
  std::uint32_t height;
};

class I420Conversion : public ::testing::TestWithParam<FrameSize> {};

Bytes RandomBytes(std::uint64_t size) {
  std::minstd_rand random(1);
  Bytes bytes(size);
  for (std::uint8_t& byte : bytes) {
    byte = static_cast<std::uint8_t>(random() >> 8U);
  }
  return bytes;
}

Bytes PackPlanes(const encoder::Planes& planes, int width, int height) {
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

// Converts the whole picture with one call of libyuv.
Bytes ConvertWithLibyuv(const Bytes& frame, FrameSize size, ColorSpace layout) {
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
    // If the height is odd, the bottom line, which is the first in memory, is dropped.
    const std::uint8_t* const bottom =
        frame.data() + (size.height % 2) * encoder::LineBytes(size.width, layout);
    libyuv::ARGBToI420(bottom, stride, planes.data(), width, u, width / 2, v, width / 2, width, -height);
  }
  return planes;
}

Bytes ConvertWithConverter(Bytes frame, FrameSize size, ColorSpace layout) {
  encoder::I420Converter converter(size.width, size.height, layout);
  return PackPlanes(converter.Convert(frame.data()), static_cast<int>(converter.EvenWidth()),
                    static_cast<int>(converter.EvenHeight()));
}

TEST_P(I420Conversion, EqualsThatOfLibyuv) {
  for (const ColorSpace layout : {ColorSpace::kYuy2, ColorSpace::kArgb32}) {
    const Bytes frame = RandomBytes(encoder::FrameBytes(GetParam().width, GetParam().height, layout));
    EXPECT_EQ(ConvertWithConverter(frame, GetParam(), layout), ConvertWithLibyuv(frame, GetParam(), layout));
  }
}

TEST_P(I420Conversion, DoesNotModifyTheFrame) {
  for (const ColorSpace layout : {ColorSpace::kI420, ColorSpace::kYuy2, ColorSpace::kArgb32}) {
    const Bytes before = RandomBytes(encoder::FrameBytes(GetParam().width, GetParam().height, layout));
    Bytes frame = before;
    encoder::I420Converter converter(GetParam().width, GetParam().height, layout);
    converter.Convert(frame.data());
    EXPECT_EQ(frame, before);
  }
}

INSTANTIATE_TEST_SUITE_P(Sizes, I420Conversion,
                         ::testing::Values(FrameSize{16, 16}, FrameSize{17, 17}, FrameSize{18, 19},
                                           FrameSize{322, 240}, FrameSize{641, 480}, FrameSize{1280, 720}),
                         [](const auto& tested) {
                           return std::to_string(tested.param.width) + "x" +
                                  std::to_string(tested.param.height);
                         });

}  // namespace
