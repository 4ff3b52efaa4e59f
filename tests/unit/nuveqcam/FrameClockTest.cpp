#include "recording/FrameClock.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

namespace nuveqcam {
namespace {

using Seconds = FrameClock::Seconds;

constexpr double kFrame = 1.0 / 30;

Clock::time_point At(double seconds) {
  return Clock::time_point{} + std::chrono::duration_cast<Clock::duration>(Seconds(seconds));
}

// The presentation times of pictures that arrive at the given times, in seconds.
std::vector<double> TimesOf(const std::vector<double>& arrivals, std::uint32_t fps = 30) {
  FrameClock clock(fps);
  std::vector<double> times;
  for (const double arrival : arrivals) {
    times.push_back(clock.TimeOf(At(arrival)).count());
  }
  return times;
}

std::vector<double> Steady(std::size_t count, double interval) {
  std::vector<double> arrivals;
  for (std::size_t i = 0; i < count; ++i) {
    arrivals.push_back(static_cast<double>(i) * interval);
  }
  return arrivals;
}

double LongestStep(const std::vector<double>& times, std::size_t from = 1) {
  double longest = 0;
  for (std::size_t i = from; i < times.size(); ++i) {
    longest = std::max(longest, times[i] - times[i - 1]);
  }
  return longest;
}

double ShortestStep(const std::vector<double>& times, std::size_t from = 1) {
  double shortest = 1e9;
  for (std::size_t i = from; i < times.size(); ++i) {
    shortest = std::min(shortest, times[i] - times[i - 1]);
  }
  return shortest;
}

TEST(FrameClock, StartsAtZero) { EXPECT_EQ(TimesOf({1000}).front(), 0); }

TEST(FrameClock, KeepsSteadyArrivals) {
  const std::vector<double> times = TimesOf(Steady(100, kFrame));
  EXPECT_NEAR(times.back(), 99 * kFrame, 1e-6);
  EXPECT_NEAR(LongestStep(times), ShortestStep(times), 1e-6);
}

TEST(FrameClock, SmoothsJitter) {
  std::vector<double> arrivals = Steady(300, kFrame);
  for (std::size_t i = 1; i < arrivals.size(); ++i) {
    arrivals[i] += i % 3 == 0 ? 0.4 * kFrame : 0;
  }
  const std::vector<double> times = TimesOf(arrivals);
  EXPECT_GT(ShortestStep(times), 0.9 * kFrame);
  EXPECT_LT(LongestStep(times), 1.1 * kFrame);
  EXPECT_NEAR(times.back(), arrivals.back(), 0.5 * kFrame);
}

TEST(FrameClock, SpreadsFramesThatArriveInABurst) {
  std::vector<double> arrivals = Steady(150, kFrame);
  std::fill_n(arrivals.begin(), 5, arrivals[4]);
  const std::vector<double> times = TimesOf(arrivals);
  EXPECT_GT(ShortestStep(times), 0.5 * kFrame);
  EXPECT_NEAR(times.back(), arrivals.back() - arrivals[4], 0.1 * kFrame);
}

TEST(FrameClock, FollowsACameraWithAnotherRateThanRequested) {
  for (const double rate : {5.0, 10.0, 15.0, 25.0, 60.0}) {
    const std::vector<double> arrivals = Steady(300, 1 / rate);
    const std::vector<double> times = TimesOf(arrivals);
    EXPECT_NEAR(times.back(), arrivals.back(), 0.02) << rate;
    EXPECT_NEAR(times[299] - times[298], 1 / rate, 0.001) << rate;
    EXPECT_GT(ShortestStep(times), 0) << rate;
  }
}

TEST(FrameClock, DoesNotRunAheadOfACameraThatIsMuchFasterThanRequested) {
  for (const std::uint32_t asked : {1U, 5U, 10U}) {
    std::vector<double> arrivals = Steady(90, kFrame);
    for (std::size_t i = 1; i < arrivals.size(); ++i) {
      arrivals[i] += i % 3 == 0 ? 0.3 * kFrame : 0;
    }
    const std::vector<double> times = TimesOf(arrivals, asked);
    for (std::size_t i = 0; i < times.size(); ++i) {
      EXPECT_NEAR(times[i], arrivals[i], 2 * kFrame) << asked << " fps, picture " << i;
    }
    EXPECT_GT(ShortestStep(times), 0.5 * kFrame) << asked;
    EXPECT_LT(LongestStep(times), 1.5 * kFrame) << asked;
  }
}

TEST(FrameClock, DoesNotMistakeABurstForAFasterCamera) {
  std::vector<double> arrivals = Steady(90, 1.0);
  std::fill_n(arrivals.begin(), 5, arrivals[4]);
  const std::vector<double> times = TimesOf(arrivals, 1);
  EXPECT_GT(ShortestStep(times), 0.01);
  EXPECT_NEAR(times.back(), arrivals.back() - arrivals[4], 0.1);
}

TEST(FrameClock, FollowsACameraThatSlowsDownInTheDark) {
  std::vector<double> arrivals = Steady(100, kFrame);
  for (int i = 0; i < 100; ++i) {
    arrivals.push_back(arrivals.back() + 2 * kFrame);
  }
  const std::vector<double> times = TimesOf(arrivals);
  EXPECT_NEAR(times.back(), arrivals.back(), kFrame);
  EXPECT_LT(LongestStep(times), 4 * kFrame);
}

TEST(FrameClock, KeepsAPause) {
  std::vector<double> arrivals = Steady(30, kFrame);
  for (int i = 0; i < 30; ++i) {
    arrivals.push_back(3 + i * kFrame);
  }
  const std::vector<double> times = TimesOf(arrivals);
  EXPECT_NEAR(times[29], 29 * kFrame, 1e-6);
  EXPECT_NEAR(times[30], 3, 1e-6);
  EXPECT_NEAR(times.back(), arrivals.back(), 1e-6);
}

TEST(FrameClock, AdvancesByAtLeastOneMillisecond) {
  std::vector<double> arrivals(1000, 0.0);
  EXPECT_GT(ShortestStep(TimesOf(arrivals)), 0.000999);
  EXPECT_GT(ShortestStep(TimesOf(arrivals, 1)), 0.000999);
  for (std::size_t i = 0; i < arrivals.size(); ++i) {
    arrivals[i] = std::abs(std::sin(static_cast<double>(i) * 0.7));
  }
  EXPECT_GT(ShortestStep(TimesOf(arrivals)), 0.000999);
}

}  // namespace
}  // namespace nuveqcam
