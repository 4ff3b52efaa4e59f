// Rate control: the stream keeps the target bit rate for all sizes and frame rates, and after scene cuts.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <numeric>

#include "encoder/H264Encoder.h"
#include "support/video/DecodedStream.h"

namespace {

using video::Bytes;
using video::Encode;
using video::EncoderHandle;
using video::IsKeyFrame;
using video::MakeEncoder;
using video::MovingClip;
using video::Param;

struct BitRateCase {
  std::uint32_t width;
  std::uint32_t height;
  std::uint32_t frameRate;
  std::uint16_t bitRate;
  int threads = 1;
};

std::string NameOf(const BitRateCase& c) {
  return std::to_string(c.width) + "x" + std::to_string(c.height) + "At" + std::to_string(c.frameRate) +
         "With" + std::to_string(c.bitRate) + "In" + std::to_string(c.threads);
}

void PrintTo(const BitRateCase& c, std::ostream* out) { *out << NameOf(c); }

class BitRate : public ::testing::TestWithParam<BitRateCase> {};

TEST_P(BitRate, IsWithinFivePercentOfTheTargetOverTenSeconds) {
  const auto [width, height, frameRate, bitRate, threads] = GetParam();
  encoder::H264Encoder encoder(threads);
  ASSERT_TRUE(encoder.Initialize(Param(width, height, ColorSpace::kI420, frameRate,
                                       static_cast<std::uint16_t>(frameRate * 5), bitRate)));
  MovingClip clip(width, height);
  VideoFrame frame;
  ASSERT_TRUE(frame.AllocBuffer(width, height, ColorSpace::kI420));
  std::uint64_t bytes = 0;
  constexpr std::uint64_t kSeconds = 10;
  for (std::uint64_t number = 0; number < kSeconds * frameRate; ++number) {
    clip.Draw(number, frame.data);
    AVEncodePacket packet;
    ASSERT_EQ(encoder.Encode(&frame, &packet), 0);
    ASSERT_GT(packet.length, 0U);
    bytes += packet.length;
  }
  const double kilobits = static_cast<double>(bytes) * 8 / 1000 / kSeconds;
  EXPECT_NEAR(kilobits / bitRate, 1.0, 0.05) << kilobits << " kbit/s";
}

INSTANTIATE_TEST_SUITE_P(Sizes, BitRate,
                         ::testing::Values(BitRateCase{640, 480, 15, 1536}, BitRateCase{640, 480, 30, 1536},
                                           BitRateCase{320, 240, 120, 384},
                                           BitRateCase{1280, 720, 30, 1536, 2}),
                         [](const auto& tested) { return NameOf(tested.param); });

TEST(SceneCut, InsertsNoKeyFrameAndLimitsTheOvershoot) {
  constexpr std::uint32_t kWidth = 640;
  constexpr std::uint32_t kHeight = 480;
  constexpr std::size_t kRate = 30;
  const EncoderHandle encoder = MakeEncoder(Param(kWidth, kHeight, ColorSpace::kI420, kRate, 300));
  MovingClip before(kWidth, kHeight, 1);
  MovingClip after(kWidth, kHeight, 2);
  VideoFrame frame;
  ASSERT_TRUE(frame.AllocBuffer(kWidth, kHeight, ColorSpace::kI420));
  std::vector<Bytes> packets;
  constexpr std::size_t kCut = 100;
  for (std::size_t number = 0; number < 200; ++number) {
    (number < kCut ? before : after).Draw(number, frame.data);
    packets.push_back(Encode(*encoder, frame));
  }
  EXPECT_EQ(std::count_if(packets.begin(), packets.end(), IsKeyFrame), 1);
  const auto bytes = [&](std::size_t begin, std::size_t end) {
    return std::accumulate(
        packets.begin() + static_cast<std::ptrdiff_t>(begin),
        packets.begin() + static_cast<std::ptrdiff_t>(end), 0.0,
        [](double sum, const Bytes& packet) { return sum + static_cast<double>(packet.size()); });
  };
  constexpr double kBytesPerSecond = 1536.0 * 1000 / 8;
  EXPECT_LT(bytes(kCut, kCut + kRate), 1.5 * kBytesPerSecond);
  EXPECT_LT(bytes(kCut, kCut + 2 * kRate), 1.2 * 2 * kBytesPerSecond);
}

}  // namespace
