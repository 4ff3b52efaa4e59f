// The picture that comes back: upright, in its colours, at every size and layout.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "encoder/H264Encoder.h"
#include "support/video/DecodedStream.h"

namespace {

struct Case {
  std::uint32_t width;
  std::uint32_t height;
  ColorSpace layout;
  int threads = 1;
};

std::string Name(const Case& c) {
  const char* const layout = c.layout == ColorSpace::kI420   ? "I420"
                             : c.layout == ColorSpace::kYuy2 ? "Yuy2"
                                                             : "Argb32";
  return layout + std::to_string(c.width) + "x" + std::to_string(c.height) +
         (c.threads > 1 ? "InSlices" : "");
}

void PrintTo(const Case& c, std::ostream* out) { *out << Name(c); }

std::vector<Case> Cases() {
  std::vector<Case> cases;
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

class Picture : public ::testing::TestWithParam<Case> {};

TEST_P(Picture, ComesBackUprightAndInItsColours) {
  const auto [width, height, layout, threads] = GetParam();
  const Painter card = TestCard(width, height);
  const auto frame = MakeFrame(PaintFrame(card, width, height, layout), width, height, layout);
  ASSERT_NE(frame, nullptr);
  encoder::H264Encoder encoder(threads);
  ASSERT_TRUE(encoder.Initialize(Param(width, height, layout, 30, 150, 20'000)));
  // A few frames, for the rate control to find its way.
  std::vector<Bytes> packets;
  for (int i = 0; i < 5; ++i) {
    packets.push_back(Encode(encoder, *frame));
  }
  const Decoded decoded = Decode(packets);
  EXPECT_EQ(decoded.errors, 0);
  ASSERT_EQ(decoded.pictures.size(), 5U);
  const Yuv& picture = decoded.pictures.back();
  const Yuv wanted = PaintYuv(card, width & ~1U, height & ~1U);
  ASSERT_EQ(picture.width, wanted.width);
  ASSERT_EQ(picture.height, wanted.height);
  EXPECT_GT(Psnr(picture.y, wanted.y), 34);
  EXPECT_GT(Psnr(picture.u, wanted.u), 30);
  EXPECT_GT(Psnr(picture.v, wanted.v), 30);
}

INSTANTIATE_TEST_SUITE_P(Each, Picture, ::testing::ValuesIn(Cases()),
                         [](const auto& tested) { return Name(tested.param); });

TEST(PictureMeasure, WouldSeeAPictureUpsideDownOrInOtherColours) {
  const Painter card = TestCard(64, 64);
  const Yuv right = PaintYuv(card, 64, 64);
  const Yuv turned = PaintYuv([&](std::uint32_t x, std::uint32_t y) { return card(x, 63 - y); }, 64, 64);
  const Yuv swapped = PaintYuv(
      [&](std::uint32_t x, std::uint32_t y) {
        const Rgb c = card(x, y);
        return Rgb{c.b, c.g, c.r};
      },
      64, 64);
  EXPECT_LT(Psnr(right.y, turned.y), 20);
  EXPECT_LT(Psnr(right.u, swapped.u), 20);
  EXPECT_EQ(Psnr(right.y, right.y), 99);
}

}  // namespace
