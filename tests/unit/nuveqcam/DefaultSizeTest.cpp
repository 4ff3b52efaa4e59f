#include "camera/DefaultSize.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace nuveqcam {
namespace {

using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

constexpr Size kSize240{320, 240};
constexpr Size kSize480{640, 480};
constexpr Size kSize540{960, 540};
constexpr Size kSize720{1280, 720};
constexpr Size kSize1080{1920, 1080};

TEST(SizePreference, IsForTheLargestUpTo1280By720) {
  EXPECT_THAT(SizesByPreference({kSize240, kSize720, kSize1080, kSize480}),
              ElementsAre(kSize720, kSize480, kSize240, kSize1080));
}

TEST(SizePreference, LimitsBothDimensions) {
  EXPECT_THAT(SizesByPreference({{1024, 768}, {720, 1280}, {640, 360}}),
              ElementsAre(Size{640, 360}, Size{1024, 768}, Size{720, 1280}));
}

TEST(SizePreference, IsForTheSmallestOfLargerSizes) {
  EXPECT_THAT(SizesByPreference({{3840, 2160}, kSize1080, {2560, 1440}}),
              ElementsAre(kSize1080, Size{2560, 1440}, Size{3840, 2160}));
}

TEST(SizePreference, ComparesAreasThatExceed32Bits) {
  EXPECT_THAT(SizesByPreference({{65536, 65536}, {65535, 65535}}),
              ElementsAre(Size{65535, 65535}, Size{65536, 65536}));
}

TEST(SizePlan, HasAllSizesIfTheirRatesAreNotKnown) {
  const SizePlan plan = PlanSizes({"0", {kSize240, kSize720}, {10000, 30000}}, 30);
  EXPECT_THAT(plan.sizes, ElementsAre(kSize720, kSize240));
  EXPECT_EQ(plan.fps, 30);
  EXPECT_EQ(plan.wantedFps, 30);
  EXPECT_FALSE(plan.isListed);
}

// 848x480 at 30 instead of 960x540 at 10 frames per second.
TEST(SizePlan, OmitsSizesThatDoNotHaveTheRate) {
  const Size size{848, 480};
  const SizePlan plan = PlanSizes({"0",
                                   {kSize240, size, kSize540},
                                   {10000, 30000},
                                   {{kSize540, 10}, {size, 30}, {kSize240, 30}, {size, 10}}},
                                  30);
  EXPECT_THAT(plan.sizes, ElementsAre(size, kSize240));
  EXPECT_TRUE(plan.isListed);
}

TEST(SizePlan, KeepsSizesWithThreeQuartersOfTheRate) {
  const std::vector<SizeRate> formats{{kSize720, 25}, {kSize480, 22}, {kSize240, 30}};
  EXPECT_THAT(PlanSizes({"0", {kSize240, kSize480, kSize720}, {30000}, formats}, 30).sizes,
              ElementsAre(kSize720, kSize240));
}

TEST(SizePlan, DoesNotWantMoreThanTheCameraHas) {
  const Capabilities camera{"0", {kSize240, kSize720}, {15000}, {{kSize720, 5}, {kSize240, 15}}};
  EXPECT_EQ(PlanSizes(camera, 60).wantedFps, 15);
  EXPECT_EQ(PlanSizes(camera, 60).fps, 60);
  EXPECT_THAT(PlanSizes(camera, 60).sizes, ElementsAre(kSize240));
  EXPECT_EQ(PlanSizes({"0", {kSize240}, {15000, 10000}}, 60).wantedFps, 15);
  EXPECT_EQ(PlanSizes({"0", {kSize240}, {}}, 60).wantedFps, 60);
}

TEST(SizePlan, IsEmptyWithoutSizes) { EXPECT_THAT(PlanSizes({"0", {}, {30000}}, 30).sizes, IsEmpty()); }

// A stream whose packets arrive at times in milliseconds, judged at the time of the last packet or later.
StartJudgement JudgeAt(const std::vector<int>& times, int now, double wanted = 30,
                       StartLook look = StartLook::kFull) {
  const Clock::time_point begin;
  std::vector<Clock::time_point> arrivals;
  for (const int time : times) {
    arrivals.push_back(begin + milliseconds(time));
  }
  return JudgeStart(arrivals, begin + milliseconds(now), wanted, look).judgement;
}

// Packets of a steady stream up to a time.
std::vector<int> PacketsEvery(int interval, int end) {
  std::vector<int> times;
  for (int time = 0; time <= end; time += interval) {
    times.push_back(time);
  }
  return times;
}

TEST(StartJudgement, NeedsPackets) {
  EXPECT_EQ(JudgeAt({}, 10000), StartJudgement::kUndecided);
  EXPECT_EQ(JudgeAt({0}, 1), StartJudgement::kUndecided);
  EXPECT_EQ(JudgeAt(PacketsEvery(33, 200), 200), StartJudgement::kUndecided);
}

TEST(StartJudgement, AcceptsAGoodRateWithinAThirdOfASecond) {
  EXPECT_EQ(JudgeAt(PacketsEvery(33, 7 * 33), 7 * 33), StartJudgement::kFastEnough);
}

TEST(StartJudgement, Accepts24Of30FramesPerSecond) {
  EXPECT_EQ(JudgeAt(PacketsEvery(42, 7 * 42), 7 * 42), StartJudgement::kFastEnough);
}

TEST(StartJudgement, RejectsASlowRateWithinHalfASecond) {
  for (const int interval : {50, 67, 100, 200}) {
    EXPECT_EQ(JudgeAt(PacketsEvery(interval, 300), 300), StartJudgement::kUndecided) << interval;
    EXPECT_EQ(JudgeAt(PacketsEvery(interval, 600), 650), StartJudgement::kTooSlow) << interval;
  }
  EXPECT_EQ(JudgeAt(PacketsEvery(100, 500), 510), StartJudgement::kTooSlow);
}

TEST(StartJudgement, ToleratesADelayThatIsMadeUpFor) {
  // Frames wait for 150 ms and then arrive at once.
  const std::vector<int> times{0, 33, 66, 216, 218, 220, 222, 224, 231};
  EXPECT_EQ(JudgeAt({0, 33, 66}, 215), StartJudgement::kUndecided);
  EXPECT_EQ(JudgeAt(times, 231), StartJudgement::kFastEnough);
}

// The frames of a slow camera that wait while the encoder starts look like those of a fast one.
TEST(StartJudgement, IgnoresTheDelayOfTheFirstPacket) {
  EXPECT_EQ(JudgeAt({90, 100, 200, 300, 400, 500}, 510), StartJudgement::kTooSlow);
}

TEST(StartJudgement, RejectsAStreamThatStops) {
  EXPECT_EQ(JudgeAt({0, 33, 66}, 500), StartJudgement::kTooSlow);
  EXPECT_EQ(JudgeAt({0}, 500), StartJudgement::kTooSlow);
}

TEST(StartJudgement, WaitsLongerForALowRate) {
  EXPECT_EQ(JudgeAt(PacketsEvery(200, 600), 600, 5), StartJudgement::kUndecided);
  EXPECT_EQ(JudgeAt(PacketsEvery(200, 1400), 1400, 5), StartJudgement::kFastEnough);
  EXPECT_EQ(JudgeAt(PacketsEvery(400, 2000), 2100, 5), StartJudgement::kTooSlow);
}

TEST(StartJudgement, EstimatesTheRate) {
  const Clock::time_point begin;
  std::vector<Clock::time_point> arrivals;
  for (const int time : PacketsEvery(100, 500)) {
    arrivals.push_back(begin + milliseconds(time));
  }
  EXPECT_NEAR(JudgeStart(arrivals, begin + milliseconds(550), 30).fps, 10, 0.1);
}

// Otherwise the smallest of several slow sizes could seem to be the fastest one.
TEST(StartJudgement, EstimatesNoHighRateFromPacketsThatArriveTogether) {
  const Clock::time_point begin;
  const std::vector<Clock::time_point> arrivals{begin, begin + milliseconds(300), begin + milliseconds(301)};
  const StartRate rate = JudgeStart(arrivals, begin + milliseconds(800), 30);
  EXPECT_EQ(rate.judgement, StartJudgement::kTooSlow);
  EXPECT_NEAR(rate.fps, 4, 0.1);
}

TEST(StartJudgement, ShortLookRejectsAClearlySlowRateEarly) {
  for (const int interval : {67, 100, 200}) {
    const std::vector<int> times = PacketsEvery(interval, interval + 150);
    EXPECT_EQ(JudgeAt(times, interval + 140, 30, StartLook::kShort), StartJudgement::kUndecided) << interval;
    EXPECT_EQ(JudgeAt(times, interval + 151, 30, StartLook::kShort), StartJudgement::kTooSlow) << interval;
  }
  // A quarter of a second at a lower rate.
  EXPECT_EQ(JudgeAt(PacketsEvery(67, 230), 230, 15, StartLook::kShort), StartJudgement::kUndecided);
  EXPECT_EQ(JudgeAt({0, 200}, 470, 15, StartLook::kShort), StartJudgement::kTooSlow);
}

TEST(StartJudgement, ShortLookJudgesOtherStreamsLikeAFullOne) {
  EXPECT_EQ(JudgeAt(PacketsEvery(33, 6 * 33), 6 * 33, 30, StartLook::kShort), StartJudgement::kUndecided);
  EXPECT_EQ(JudgeAt(PacketsEvery(33, 7 * 33), 7 * 33, 30, StartLook::kShort), StartJudgement::kFastEnough);
  // Twenty frames per second.
  EXPECT_EQ(JudgeAt(PacketsEvery(50, 400), 400, 30, StartLook::kShort), StartJudgement::kUndecided);
  EXPECT_EQ(JudgeAt(PacketsEvery(50, 450), 460, 30, StartLook::kShort), StartJudgement::kTooSlow);
}

SizePlan PlanOf(std::vector<Size> sizes, bool isListed) { return {std::move(sizes), 30, 30, isListed}; }

TEST(SizeSearch, KeepsASizeThatIsFastEnough) {
  SizeSearch search(PlanOf({kSize720, kSize240}, false));
  EXPECT_EQ(search.Current(), kSize720);
  EXPECT_TRUE(search.IsOpenEnded());
  search.NoteFastEnough();
  EXPECT_EQ(search.Current(), kSize720);
  EXPECT_FALSE(search.IsOpenEnded());
  EXPECT_EQ(search.Message(), "");
}

TEST(SizeSearch, DoesNotJudgeAnOnlySize) {
  EXPECT_FALSE(SizeSearch(PlanOf({kSize720}, false)).IsOpenEnded());
}

TEST(SizeSearch, DoesNotJudgeALowRate) {
  SizePlan plan = PlanOf({kSize720, kSize240}, false);
  plan.wantedFps = 10;
  EXPECT_FALSE(SizeSearch(plan).IsOpenEnded());
}

// Notes the rates of the sizes that the search opens, until it ends. Returns the opened sizes.
std::vector<Size> RunSearch(SizeSearch& search, const std::vector<std::pair<Size, double>>& rates,
                            int maxShortLooks = 10) {
  std::vector<Size> opened{search.Current()};
  while (search.IsOpenEnded()) {
    for (const auto& [size, fps] : rates) {
      if (size == search.Current()) {
        if (fps < 22.5) {
          search.NoteTooSlow(fps);
        } else {
          search.NoteFastEnough();
        }
        break;
      }
    }
    if (search.IsOpenEnded() && search.Look() == StartLook::kShort && maxShortLooks-- == 0) {
      search.EndShortLooks();
    }
    if (!(opened.back() == search.Current())) {
      opened.push_back(search.Current());
    }
  }
  return opened;
}

TEST(SizeSearch, GoesThroughAllSizesIfTheirRatesAreNotKnown) {
  SizeSearch search(PlanOf({kSize720, kSize540, kSize480, kSize240}, false));
  EXPECT_THAT(RunSearch(search, {{kSize720, 10}, {kSize540, 10}, {kSize480, 30}, {kSize240, 10}}),
              ElementsAre(kSize720, kSize540, kSize480));
  EXPECT_EQ(search.Message(),
            "1280x720 delivers only about 10 of 30 frames per second; using 640x480 (--size chooses a size)");
}

TEST(SizeSearch, TriesTheSmallestSizeSecondIfAllListTheRate) {
  SizeSearch search(PlanOf({kSize720, kSize540, kSize480, kSize240}, true));
  EXPECT_THAT(RunSearch(search, {{kSize720, 10}, {kSize540, 15}, {kSize480, 30}, {kSize240, 30}}),
              ElementsAre(kSize720, kSize240, kSize540, kSize480));
}

TEST(SizeSearch, ReturnsToTheSmallestSizeIfItIsTheOnlyFastOne) {
  SizeSearch search(PlanOf({kSize720, kSize480, kSize240}, true));
  EXPECT_THAT(RunSearch(search, {{kSize720, 10}, {kSize480, 15}, {kSize240, 30}}),
              ElementsAre(kSize720, kSize240, kSize480, kSize240));
  EXPECT_THAT(search.Message(), HasSubstr("using 320x240"));
}

TEST(SizeSearch, TakesShortLooksAtTheOthersIfTheSmallestIsSlow) {
  SizeSearch search(PlanOf({kSize720, kSize540, kSize480, kSize240}, true));
  EXPECT_THAT(RunSearch(search, {{kSize720, 10}, {kSize540, 10}, {kSize480, 30}, {kSize240, 10}}),
              ElementsAre(kSize720, kSize240, kSize540, kSize480));
  EXPECT_EQ(search.Message(),
            "1280x720 delivers only about 10 of 30 frames per second; using 640x480 (--size chooses a size)");
}

TEST(SizeSearch, EndsAtThePreferredSizeIfAllAreAsSlow) {
  SizeSearch search(PlanOf({kSize720, kSize540, kSize240}, true));
  EXPECT_THAT(RunSearch(search, {{kSize720, 14.6}, {kSize540, 13.3}, {kSize240, 15}}),
              ElementsAre(kSize720, kSize240, kSize540, kSize720));
  EXPECT_EQ(search.Message(),
            "no size delivers 30 frames per second, as in dim light or on a busy PC; using 1280x720, which "
            "delivers about 15");
}

TEST(SizeSearch, TellsThatSizesWereNotTried) {
  SizeSearch search(PlanOf({kSize720, kSize540, kSize480, kSize240}, true));
  EXPECT_THAT(RunSearch(search, {{kSize720, 14.6}, {kSize540, 13.3}, {kSize480, 30}, {kSize240, 15}}, 1),
              ElementsAre(kSize720, kSize240, kSize540, kSize720));
  EXPECT_EQ(search.Message(),
            "no size that was tried delivers 30 frames per second, as in dim light or on a busy PC; using "
            "1280x720, which delivers about 15; trying 1 more would delay the start: 'nuveqcam probe' "
            "measures all sizes");
}

TEST(SizeSearch, UsesTheFastestOfSlowSizes) {
  SizeSearch search(PlanOf({kSize720, kSize480, kSize240}, false));
  EXPECT_THAT(RunSearch(search, {{kSize720, 5}, {kSize480, 15}, {kSize240, 16}}),
              ElementsAre(kSize720, kSize480, kSize240, kSize480));
}

TEST(SizeSearch, TakesShortLooksIfThePreferredSizeIsTheSmallest) {
  SizeSearch search(PlanOf({kSize1080, {2560, 1440}}, true));
  EXPECT_THAT(RunSearch(search, {{kSize1080, 10}, {{2560, 1440}, 10}}),
              ElementsAre(kSize1080, Size{2560, 1440}, kSize1080));
}

}  // namespace
}  // namespace nuveqcam
