#include "camera/Capabilities.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "commands/Commands.h"

namespace nuveqcam {
namespace {

using ::testing::ElementsAre;

TEST(ListedRate, IsTheHighestOfASize) {
  const Capabilities camera{
      "0", {{640, 480}, {320, 240}}, {15000, 30000}, {{{640, 480}, 15}, {{640, 480}, 30}, {{640, 480}, 20}}};
  EXPECT_EQ(ListedFps(camera, {640, 480}), 30);
  EXPECT_EQ(ListedFps(camera, {320, 240}), std::nullopt);
}

TEST(Size, IsThatOfAPictureInEitherLineOrder) {
  EXPECT_EQ(ToSize(640, 480), (Size{640, 480}));
  EXPECT_EQ(ToSize(640, -480), (Size{640, 480}));
}

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

TEST(RequestPlan, PrefersTheOptionsToTheDefaults) {
  Options options;
  const Capabilities camera{"0", {{640, 480}, {320, 240}}, {15000}};
  const CameraPlan defaults = PlanRequests(options, camera);
  EXPECT_THAT(defaults.sizes.sizes, ElementsAre(Size{640, 480}, Size{320, 240}));
  EXPECT_EQ(defaults.sizes.fps, 15);
  options.size = {100, 50};
  options.fps = 7;
  const CameraPlan plan = PlanRequests(options, camera);
  EXPECT_THAT(plan.sizes.sizes, ElementsAre(Size{100, 50}));
  EXPECT_EQ(plan.sizes.fps, 7);
  const CameraRequest request = PlanRequests(options, {"7", {}, {}}).Request({100, 50});
  EXPECT_EQ(request.id, "7");
  EXPECT_EQ(request.size, (Size{100, 50}));
  EXPECT_EQ(request.fps, 7);
}

TEST(RequestPlan, WithoutAnySizeFails) {
  try {
    PlanRequests({}, {"0", {}, {}});
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
