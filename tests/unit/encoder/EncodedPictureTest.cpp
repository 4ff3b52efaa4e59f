// Decoded pictures have the orientation and the colours of the input, for all sizes and layouts.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "encoder/H264Encoder.h"
#include "support/video/DecodedStream.h"

namespace {

using video::Bytes;
using video::Decode;
using video::Decoded;
using video::Encode;
using video::MakeFrame;
using video::Painter;
using video::PaintFrame;
using video::PaintYuv;
using video::Param;
using video::Psnr;
using video::Rgb;
using video::TestCard;
using video::Yuv;

struct PictureCase {
  std::uint32_t width;
  std::uint32_t height;
  ColorSpace layout;
  int threads = 1;
};

std::string NameOf(const PictureCase& c) {
  const char* const layout = c.layout == ColorSpace::kI420   ? "I420"
                             : c.layout == ColorSpace::kYuy2 ? "Yuy2"
                                                             : "Argb32";
  return layout + std::to_string(c.width) + "x" + std::to_string(c.height) +
         (c.threads > 1 ? "InSlices" : "");
}

void PrintTo(const PictureCase& c, std::ostream* out) { *out << NameOf(c); }

std::vector<PictureCase> PictureCases() {
  std::vector<PictureCase> cases;
  for (const ColorSpace layout : {ColorSpace::kI420, ColorSpace::kYuy2, ColorSpace::kArgb32}) {
    for (const auto& [width, height] :
         {std::pair{16U, 16U}, std::pair{17U, 17U}, std::pair{18U, 16U}, std::pair{33U, 62U},
          std::pair{160U, 120U}, std::pair{321U, 241U}, std::pair{640U, 480U}, std::pair{641U, 479U},
          std::pair{1280U, 720U}, std::pair{1919U, 1081U}}) {
      cases.push_back({width, height, layout});
      if (width >= 640) {
        cases.push_back({width, height, layout, 2});
      }
    }
  }
  return cases;
}

class EncodedPicture : public ::testing::TestWithParam<PictureCase> {};

TEST_P(EncodedPicture, KeepsOrientationAndColours) {
  const auto [width, height, layout, threads] = GetParam();
  const Painter card = TestCard(width, height);
  const auto frame = MakeFrame(PaintFrame(card, width, height, layout), width, height, layout);
  ASSERT_NE(frame, nullptr);
  encoder::H264Encoder encoder(threads);
  ASSERT_TRUE(encoder.Initialize(Param(width, height, layout, 30, 150, 20'000)));
  // The rate control needs a few frames to settle.
  std::vector<Bytes> packets;
  for (int i = 0; i < 5; ++i) {
    packets.push_back(Encode(encoder, *frame));
  }
  const Decoded decoded = Decode(packets);
  EXPECT_EQ(decoded.errors, 0);
  ASSERT_EQ(decoded.pictures.size(), 5U);
  const Yuv& picture = decoded.pictures.back();
  const Yuv expected = PaintYuv(card, width & ~1U, height & ~1U);
  ASSERT_EQ(picture.width, expected.width);
  ASSERT_EQ(picture.height, expected.height);
  EXPECT_GT(Psnr(picture.y, expected.y), 34);
  EXPECT_GT(Psnr(picture.u, expected.u), 30);
  EXPECT_GT(Psnr(picture.v, expected.v), 30);
}

INSTANTIATE_TEST_SUITE_P(Sizes, EncodedPicture, ::testing::ValuesIn(PictureCases()),
                         [](const auto& tested) { return NameOf(tested.param); });

TEST(PictureComparison, DetectsFlippedPicturesAndSwappedColours) {
  const Painter card = TestCard(64, 64);
  const Yuv original = PaintYuv(card, 64, 64);
  const Yuv flipped = PaintYuv([&](std::uint32_t x, std::uint32_t y) { return card(x, 63 - y); }, 64, 64);
  const Yuv swapped = PaintYuv(
      [&](std::uint32_t x, std::uint32_t y) {
        const Rgb c = card(x, y);
        return Rgb{c.b, c.g, c.r};
      },
      64, 64);
  EXPECT_LT(Psnr(original.y, flipped.y), 20);
  EXPECT_LT(Psnr(original.u, swapped.u), 20);
  EXPECT_EQ(Psnr(original.y, original.y), 99);
}

}  // namespace
