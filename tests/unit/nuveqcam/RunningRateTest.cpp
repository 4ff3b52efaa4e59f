#include "probe/RunningRate.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "probe/ProbeReport.h"

namespace nuveqcam {
namespace {

using std::chrono::milliseconds;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr Size kRunningSize{640, 480};

CameraRequest RequestAt(std::uint32_t fps) { return {"0", kRunningSize, fps}; }

// A camera whose driver lists some rates for the size, and others for another size.
Capabilities CameraListing(const std::vector<std::uint32_t>& rates) {
  Capabilities camera{"0", {kRunningSize, {320, 240}}, {60000}, {{{320, 240}, 60}}};
  for (const std::uint32_t fps : rates) {
    camera.rates.push_back(fps * 1000);
    camera.formats.push_back({kRunningSize, fps});
  }
  return camera;
}

std::vector<Clock::time_point> ArrivalsAt(int fps, milliseconds time = milliseconds(5000)) {
  std::vector<Clock::time_point> arrivals;
  for (int i = 0; i * 1000 / fps <= time.count(); ++i) {
    arrivals.push_back(Clock::time_point() + milliseconds(i * 1000 / fps));
  }
  return arrivals;
}

// Judges a stream whose latest packet has just arrived.
RunningRate RateNow(const Capabilities& camera, const CameraRequest& request,
                    const std::vector<Clock::time_point>& arrivals) {
  return JudgeRunningRate(camera, request, arrivals, arrivals.empty() ? Clock::now() : arrivals.back());
}

TEST(RunningRate, OfACameraThatHasGoneSilentIsNotKnown) {
  const std::vector<Clock::time_point> arrivals = ArrivalsAt(30);
  const Capabilities camera = CameraListing({30});
  const auto rateAfter = [&](milliseconds silence) {
    return JudgeRunningRate(camera, RequestAt(30), arrivals, arrivals.back() + silence);
  };
  EXPECT_TRUE(rateAfter(milliseconds(1000)).delivered);
  EXPECT_FALSE(rateAfter(milliseconds(1001)).delivered);
}

TEST(RunningRate, AsPromisedHasNoFindings) {
  const RunningRate rate = RateNow(CameraListing({30}), RequestAt(30), ArrivalsAt(30));
  ASSERT_TRUE(rate.delivered);
  EXPECT_NEAR(*rate.delivered, 30, 0.1);
  EXPECT_EQ(rate.promised, 30);
  EXPECT_THAT(rate.findings, IsEmpty());
}

TEST(RunningRate, BelowThePromisedOneIsFoundInTheWordsOfProbe) {
  const RunningRate rate = RateNow(CameraListing({30}), RequestAt(30), ArrivalsAt(15));
  ASSERT_THAT(rate.findings, SizeIs(1));
  EXPECT_EQ(rate.findings[0].word, WordFor(Finding::kTooSlow));
  EXPECT_EQ(rate.findings[0].text, "640x480 at 30 fps delivers 15.0 fps");
  EXPECT_EQ(rate.findings[0].advice, AdviceFor(Finding::kTooSlow));
}

TEST(RunningRate, IsNotPromisedAboveTheListedOne) {
  const RunningRate rate = RateNow(CameraListing({15, 10}), RequestAt(30), ArrivalsAt(15));
  EXPECT_EQ(rate.promised, 15);
  EXPECT_THAT(rate.findings, IsEmpty());
}

TEST(RunningRate, OfAnotherOfferedRateIsARemark) {
  const RunningRate rate = RateNow(CameraListing({30, 15}), RequestAt(15), ArrivalsAt(30));
  ASSERT_THAT(rate.findings, SizeIs(1));
  EXPECT_EQ(rate.findings[0].word, WordFor(Finding::kOtherRate));
  EXPECT_EQ(rate.findings[0].text, "640x480 at 15 fps delivers 30.0 fps");
}

TEST(RunningRate, IsNotKnownBeforeTwoSeconds) {
  for (const milliseconds time : {milliseconds(0), milliseconds(1900)}) {
    const RunningRate rate = RateNow(CameraListing({30}), RequestAt(30), ArrivalsAt(15, time));
    EXPECT_FALSE(rate.delivered);
    EXPECT_THAT(rate.findings, IsEmpty());
  }
  EXPECT_FALSE(RateNow(CameraListing({30}), RequestAt(30), {}).delivered);
}

TEST(RunningRate, IsNotJudgedByJitter) {
  std::vector<Clock::time_point> arrivals = ArrivalsAt(30);
  for (std::size_t i = 0; i < arrivals.size(); i += 2) {
    arrivals[i] += milliseconds(25);
  }
  EXPECT_THAT(RateNow(CameraListing({30}), RequestAt(30), arrivals).findings, IsEmpty());
}

}  // namespace
}  // namespace nuveqcam
