#include "probe/StreamMeasurement.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace nuveqcam {
namespace {

using std::chrono::milliseconds;

// Packets that arrive at times in milliseconds.
std::vector<Packet> PacketsAt(const std::vector<int>& times, std::size_t bytes = 1000) {
  std::vector<Packet> packets;
  for (const int time : times) {
    packets.push_back({std::vector<std::uint8_t>(bytes), Clock::time_point() + milliseconds(time)});
  }
  return packets;
}

std::vector<int> EvenTimes(int count, int interval) {
  std::vector<int> times;
  for (int i = 0; i < count; ++i) {
    times.push_back(i * interval);
  }
  return times;
}

TEST(StreamMeasurement, OfASteadyStreamHasItsRateAndNoJitter) {
  const StreamFigures figures = MeasureStream(PacketsAt(EvenTimes(90, 40)));
  EXPECT_EQ(figures.packets, 90);
  ASSERT_TRUE(figures.fps.has_value());
  EXPECT_NEAR(*figures.fps, 25, 1e-9);
  ASSERT_TRUE(figures.jitterP99.has_value());
  EXPECT_NEAR(figures.jitterP99->count(), 0, 1e-9);
}

TEST(StreamMeasurement, BitRateIsThatOfTheMeanPacket) {
  std::vector<Packet> packets = PacketsAt(EvenTimes(100, 20), 1000);
  packets[0].bytes.resize(6000);
  const StreamFigures figures = MeasureStream(packets);
  // 1050 bytes for each of 50 pictures per second.
  ASSERT_TRUE(figures.kbits.has_value());
  EXPECT_NEAR(*figures.kbits, 420, 1e-9);
  EXPECT_EQ(figures.largestPacket, 6000);
}

TEST(StreamMeasurement, JitterIsTheDeviationThatOneOfAHundredIntervalsExceeds) {
  std::vector<int> times = EvenTimes(206, 40);
  // Two of the 200 judged intervals deviate by 10 ms, two by 30 ms.
  times[50] += 10;
  times[100] += 30;
  const StreamFigures figures = MeasureStream(PacketsAt(times));
  ASSERT_TRUE(figures.jitterP99.has_value());
  EXPECT_NEAR(figures.jitterP99->count(), 10, 1e-9);
}

TEST(StreamMeasurement, EverySecondPacketLateIsJitter) {
  std::vector<int> times = EvenTimes(91, 40);
  for (std::size_t i = 0; i < times.size(); i += 2) {
    times[i] += 25;
  }
  const StreamFigures figures = MeasureStream(PacketsAt(times));
  ASSERT_TRUE(figures.jitterP99.has_value());
  EXPECT_NEAR(figures.jitterP99->count(), 25, 1);
  ASSERT_TRUE(figures.fps.has_value());
  EXPECT_NEAR(*figures.fps, 25, 0.3);
}

TEST(StreamMeasurement, LeavesOutTheFirstPackets) {
  // Five frames have waited while the encoder started.
  std::vector<int> times = EvenTimes(50, 40);
  for (std::size_t i = 0; i < 5; ++i) {
    times[i] = 160 + static_cast<int>(i);
  }
  const StreamFigures figures = MeasureStream(PacketsAt(times));
  ASSERT_TRUE(figures.fps.has_value());
  EXPECT_NEAR(*figures.fps, 25, 1e-9);
  ASSERT_TRUE(figures.jitterP99.has_value());
  EXPECT_NEAR(figures.jitterP99->count(), 0, 1e-9);
}

TEST(StreamMeasurement, UsesAllPacketsOfAShortStream) {
  const StreamFigures figures = MeasureStream(PacketsAt({0, 100}));
  ASSERT_TRUE(figures.fps.has_value());
  EXPECT_NEAR(*figures.fps, 10, 1e-9);
}

TEST(StreamMeasurement, LostFramesLowerTheRate) {
  std::vector<int> times = EvenTimes(100, 20);
  times.erase(times.begin() + 40, times.begin() + 60);
  const StreamFigures figures = MeasureStream(PacketsAt(times));
  ASSERT_TRUE(figures.fps.has_value());
  EXPECT_NEAR(*figures.fps, 50.0 * 74 / 94, 1e-9);
}

TEST(StreamMeasurement, OfFewerThanTwoPacketsHasNoRate) {
  for (const std::vector<int>& times : {std::vector<int>{}, {5}}) {
    const StreamFigures figures = MeasureStream(PacketsAt(times));
    EXPECT_EQ(figures.packets, times.size());
    EXPECT_EQ(figures.fps, std::nullopt);
    EXPECT_EQ(figures.kbits, std::nullopt);
    EXPECT_EQ(figures.jitterP99, std::nullopt);
  }
}

TEST(StreamMeasurement, OfPacketsAtOneTimeHasNoRate) {
  EXPECT_EQ(MeasureStream(PacketsAt({5, 5, 5})).fps, std::nullopt);
}

TEST(StartMeasurement, HasMedianAndWorst) {
  const std::vector<Clock::duration> times{milliseconds(300), milliseconds(900), milliseconds(200)};
  const auto figures = MeasureStarts(times);
  ASSERT_TRUE(figures.has_value());
  EXPECT_EQ(figures->median.count(), 300);
  EXPECT_EQ(figures->worst.count(), 900);
  EXPECT_FALSE(MeasureStarts({}).has_value());
}

}  // namespace
}  // namespace nuveqcam
