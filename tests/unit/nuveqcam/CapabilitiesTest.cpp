#include "camera/Capabilities.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "commands/Commands.h"

namespace nuveqcam {
namespace {

TEST(DefaultSize, IsTheLargestUpTo1280By720) {
  EXPECT_EQ(ChooseSize({{320, 240}, {1280, 720}, {1920, 1080}, {640, 480}}), (Size{1280, 720}));
  EXPECT_EQ(ChooseSize({{640, 480}, {320, 240}, {1920, 1080}}), (Size{640, 480}));
}

TEST(DefaultSize, LimitsBothDimensions) {
  EXPECT_EQ(ChooseSize({{640, 360}, {1024, 768}, {720, 1280}}), (Size{640, 360}));
}

TEST(DefaultSize, IsTheSmallestIfAllAreLarger) {
  EXPECT_EQ(ChooseSize({{3840, 2160}, {1920, 1080}, {2560, 1440}}), (Size{1920, 1080}));
}

TEST(DefaultSize, ComparesAreasThatExceed32Bits) {
  EXPECT_EQ(ChooseSize({{65536, 65536}, {65535, 65535}}), (Size{65535, 65535}));
}

TEST(DefaultSize, IsAbsentWithoutSizes) { EXPECT_EQ(ChooseSize({}), std::nullopt); }

TEST(DefaultRate, Is30IfOffered) {
  EXPECT_EQ(ChooseFps({10000, 15000, 30000, 60000}), 30);
  EXPECT_EQ(ChooseFps({15000, 29970}), 30);
}

TEST(DefaultRate, IsTheHighestBelow30ElseTheLowest) {
  EXPECT_EQ(ChooseFps({10000, 25000, 60000}), 25);
  EXPECT_EQ(ChooseFps({120000, 60000}), 60);
  EXPECT_EQ(ChooseFps({100}), 1);
  EXPECT_EQ(ChooseFps({}), 30);
}

TEST(DefaultRate, HandlesExtremeRates) {
  EXPECT_EQ(ChooseFps({0}), 1);
  EXPECT_EQ(ChooseFps({4294967295U}), 4294967);
}

TEST(Request, PrefersTheOptionsToTheDefaults) {
  Options options;
  const Capabilities camera{"0", {{640, 480}}, {15000}};
  EXPECT_EQ(ChooseRequest(options, camera).size, (Size{640, 480}));
  EXPECT_EQ(ChooseRequest(options, camera).fps, 15);
  options.size = {100, 50};
  options.fps = 7;
  EXPECT_EQ(ChooseRequest(options, camera).size, (Size{100, 50}));
  EXPECT_EQ(ChooseRequest(options, camera).fps, 7);
  EXPECT_EQ(ChooseRequest(options, {"7", {}, {}}).id, "7");
}

TEST(Request, WithoutAnySizeFails) {
  try {
    ChooseRequest({}, {"0", {}, {}});
    FAIL() << "no failure without a size";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.Code(), ExitCode::kCannotOpen);
  }
}

TEST(RateText, HasOnlySignificantDecimals) {
  EXPECT_EQ(RateText(30000), "30");
  EXPECT_EQ(RateText(29970), "29.97");
  EXPECT_EQ(RateText(7500), "7.5");
  EXPECT_EQ(RateText(1), "0.001");
  EXPECT_EQ(RateText(0), "0");
}

}  // namespace
}  // namespace nuveqcam
