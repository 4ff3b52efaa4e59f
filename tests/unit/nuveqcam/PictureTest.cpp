// Decoding packets to pictures.
#include "picture/Picture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <utility>

#include "EncodedKeyFrame.h"

namespace nuveqcam {
namespace {

testing::Matcher<std::vector<int>> Near(int red, int green, int blue) {
  const auto about = [](int value) {
    return testing::AllOf(testing::Ge(value - 12), testing::Le(value + 12));
  };
  return testing::ElementsAre(about(red), about(green), about(blue));
}

std::vector<int> PixelOf(const Picture& picture, std::uint32_t x, std::uint32_t y) {
  const std::size_t at = (std::size_t{y} * picture.width + x) * 3;
  return {picture.rgb.at(at), picture.rgb.at(at + 1), picture.rgb.at(at + 2)};
}

TEST(PictureDecoder, DecodesColorsAndSize) {
  // The second size is not a multiple of the macroblock size.
  for (const auto& [width, height] : {std::pair{320, 240}, {322, 182}}) {
    PictureDecoder decoder;
    ASSERT_TRUE(decoder.Decode(EncodeKeyFrame(width, height)));
    const Picture picture = decoder.Current();
    ASSERT_EQ(picture.width, static_cast<std::uint32_t>(width));
    ASSERT_EQ(picture.height, static_cast<std::uint32_t>(height));
    ASSERT_EQ(picture.rgb.size(), std::size_t{3} * picture.width * picture.height);
    for (const std::uint32_t y : {1U, picture.height - 1}) {
      EXPECT_THAT(PixelOf(picture, 1, y), Near(255, 0, 0));
      EXPECT_THAT(PixelOf(picture, picture.width - 1, y), Near(0, 0, 255));
    }
  }
}

TEST(PictureDecoder, RejectsInvalidData) {
  Packet truncated = EncodeKeyFrame(320, 240);
  truncated.bytes.resize(truncated.bytes.size() / 2);
  PictureDecoder decoder;
  EXPECT_FALSE(decoder.Decode(truncated));
  EXPECT_FALSE(decoder.Decode({{}, Clock::now()}));
  EXPECT_FALSE(decoder.Decode({{0, 0, 0, 1, 0x65, 1, 2, 3}, Clock::now()}));
  EXPECT_FALSE(decoder.Decode({std::vector<std::uint8_t>(1000, 0xFF), Clock::now()}));
  EXPECT_TRUE(decoder.Decode(EncodeKeyFrame(320, 240)));
}

}  // namespace
}  // namespace nuveqcam
