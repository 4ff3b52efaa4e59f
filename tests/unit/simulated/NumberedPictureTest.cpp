// Reading number and colours of the numbered picture, and detecting pictures that are wrong.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "support/simulated/SimulatedCameraHelpers.h"

namespace simulated_support {
namespace {

using ::testing::Optional;

constexpr double kGoodColour = 6;
// A wrong corner colour exceeds this.
constexpr double kWrongColour = 60;

// Numbers with single and multiple bits set, up to the maximum.
const std::vector<std::uint32_t> kNumbers{0,      1,        2,        3,        255,     256,
                                          0x5555, 0xAAAA,   0xFFFF,   0x10000,  0x35F00, 0x555555,
                                          719,    0x800000, 0xAAAAAA, 0xFEDCBA, 0xFFFFFF};

Yuv Painted(simulated::NumberedPicture& painter, std::uint32_t number, std::uint32_t width,
            std::uint32_t height) {
  return PictureOf(painter.Paint(number), width, height);
}

class NumberedPictureSizeTest : public ::testing::TestWithParam<std::pair<std::uint32_t, std::uint32_t>> {};

TEST_P(NumberedPictureSizeTest, NumberAndColoursCanBeRead) {
  const auto [width, height] = GetParam();
  simulated::NumberedPicture painter(width, height);
  for (const std::uint32_t number : kNumbers) {
    const Yuv picture = Painted(painter, number, width, height);
    EXPECT_THAT(NumberIn(picture), Optional(number));
    EXPECT_LT(ColourError(picture), kGoodColour);
  }
}

TEST_P(NumberedPictureSizeTest, FlippedAndMirroredPicturesAreDetected) {
  const auto [width, height] = GetParam();
  simulated::NumberedPicture painter(width, height);
  const std::size_t line = std::size_t{4} * width;
  // Many positions of the ball; fewer for large pictures to limit the run time.
  const std::uint32_t step = width > 640 ? 211 : 53;
  for (std::uint32_t number = 0; number < 720; number += step) {
    const Bytes upright = painter.Paint(number);
    Bytes turned(upright.size());
    Bytes mirrored(upright.size());
    for (std::size_t y = 0; y < height; ++y) {
      std::copy_n(&upright[y * line], line, &turned[(height - 1 - y) * line]);
      for (std::size_t x = 0; x < width; ++x) {
        std::copy_n(&upright[y * line + 4 * x], 4, &mirrored[y * line + 4 * (width - 1 - x)]);
      }
    }
    EXPECT_EQ(NumberIn(PictureOf(turned, width, height)), std::nullopt) << number;
    EXPECT_GT(ColourError(PictureOf(turned, width, height)), kWrongColour);
    EXPECT_GT(ColourError(PictureOf(mirrored, width, height)), kWrongColour);
  }
}

TEST_P(NumberedPictureSizeTest, DependsOnlyOnTheNumberAndChangesWithIt) {
  const auto [width, height] = GetParam();
  simulated::NumberedPicture painter(width, height);
  simulated::NumberedPicture another(width, height);
  const std::size_t belowBlocks = std::size_t{4} * width * (height / 6);
  std::set<Bytes> below;
  for (std::uint32_t number = 0; number < 10; ++number) {
    const Bytes& picture = painter.Paint(number);
    below.insert(Bytes(picture.begin() + static_cast<std::ptrdiff_t>(belowBlocks), picture.end()));
  }
  EXPECT_EQ(below.size(), 10U);
  EXPECT_EQ(painter.Paint(7), another.Paint(7));
  EXPECT_EQ(painter.Paint(0x1000007), another.Paint(7));
}

INSTANTIATE_TEST_SUITE_P(Each, NumberedPictureSizeTest,
                         ::testing::Values(std::pair{64U, 48U}, std::pair{66U, 50U}, std::pair{64U, 480U},
                                           std::pair{320U, 240U}, std::pair{640U, 480U},
                                           std::pair{1280U, 720U}, std::pair{1920U, 1080U}),
                         [](const auto& tested) {
                           return std::to_string(tested.param.first) + "x" +
                                  std::to_string(tested.param.second);
                         });

// Fills one of the 32 blocks with a luma value.
void FillBlock(Yuv& picture, std::uint32_t bit, std::uint8_t luma) {
  for (std::uint32_t y = bit / 16 * 20; y < (bit / 16 + 1) * 20; ++y) {
    for (std::uint32_t x = bit % 16 * 20; x < (bit % 16 + 1) * 20; ++x) {
      picture.y[std::size_t{y} * 320 + x] = luma;
    }
  }
}

TEST(NumberedPictureTest, GreyBlockGivesNoNumber) {
  simulated::NumberedPicture painter(320, 240);
  for (std::uint32_t bit = 0; bit < 32; ++bit) {
    Yuv picture = Painted(painter, 0x123456, 320, 240);
    FillBlock(picture, bit, 126);
    EXPECT_EQ(NumberIn(picture), std::nullopt) << bit;
  }
}

TEST(NumberedPictureTest, OneOrTwoInvertedBlocksGiveNoNumber) {
  simulated::NumberedPicture painter(320, 240);
  const Yuv right = Painted(painter, 0x123456, 320, 240);
  const auto invert = [&](Yuv& picture, std::uint32_t bit) {
    const std::size_t middle = std::size_t{bit / 16 * 20 + 10} * 320 + std::size_t{20} * (bit % 16) + 10;
    const bool isWhite = right.y[middle] > 128;
    FillBlock(picture, bit, isWhite ? 16 : 235);
  };
  for (std::uint32_t first = 0; first < 32; ++first) {
    for (std::uint32_t second = first; second < 32; ++second) {
      Yuv picture = right;
      invert(picture, first);
      invert(picture, second);
      EXPECT_EQ(NumberIn(picture), std::nullopt) << first << " and " << second;
    }
  }
}

TEST(NumberedPictureTest, PictureWithoutBlocksGivesNoNumber) {
  for (const std::uint8_t luma : {std::uint8_t{0}, std::uint8_t{16}, std::uint8_t{235}}) {
    const Bytes plane(std::size_t{320} * 240, luma);
    EXPECT_EQ(simulated::ReadFrameNumber(plane.data(), 320, 320, 240), std::nullopt);
  }
  const Bytes small(16, 0);
  EXPECT_EQ(simulated::ReadFrameNumber(small.data(), 4, 4, 4), std::nullopt);
}

TEST(NumberedPictureTest, RejectsUnsupportedSizes) {
  EXPECT_THROW(simulated::NumberedPicture(62, 48), std::invalid_argument);
  EXPECT_THROW(simulated::NumberedPicture(64, 46), std::invalid_argument);
  EXPECT_THROW(simulated::NumberedPicture(65, 48), std::invalid_argument);
  EXPECT_THROW(simulated::NumberedPicture(64, 49), std::invalid_argument);
}

TEST(CornerColourTest, SwappedChromaAndAnotherRangeAreDetected) {
  simulated::NumberedPicture painter(320, 240);
  Yuv swapped = Painted(painter, 5, 320, 240);
  std::swap(swapped.u, swapped.v);
  EXPECT_GT(ColourError(swapped), kWrongColour);
  Yuv full = Painted(painter, 5, 320, 240);
  for (std::uint8_t& value : full.y) {
    value = static_cast<std::uint8_t>(std::clamp((value - 16) * 255 / 219, 0, 255));
  }
  EXPECT_GT(ColourError(full), 15);
}

}  // namespace
}  // namespace simulated_support
