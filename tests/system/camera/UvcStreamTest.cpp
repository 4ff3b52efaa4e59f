// Tests of errors of the camera that would hide errors of the library: the tests in the virtual machine rely
// on the pace of the frames, the reports of skipped ones, the frame id, and the pictures. Other errors, such
// as wrong descriptors, make those tests fail.
#include <gtest/gtest.h>

#include <optional>
#include <string_view>
#include <vector>

#include "CameraOptions.h"
#include "FramePacer.h"
#include "FrameSource.h"
#include "PayloadSender.h"
#include "PixelFormats.h"

namespace uvc {
namespace {

using std::chrono::milliseconds;

// The test sets the clock; frames are due every 100 ms.
class UvcPace : public ::testing::Test {
 protected:
  FramePacer::Due At(int time, bool isBusy = false) {
    return m_pacer.Advance(m_start + milliseconds(time), isBusy);
  }

  const FramePacer::Clock::time_point m_start{std::chrono::hours(1)};
  FramePacer m_pacer{m_start, 1'000'000};
};

TEST_F(UvcPace, OneFrameIsDuePerInterval) {
  EXPECT_EQ(At(0).number, 0U);
  EXPECT_EQ(At(99).number, std::nullopt);
  EXPECT_EQ(At(100).number, 1U);
  EXPECT_EQ(At(270).number, 2U);
  EXPECT_EQ(m_pacer.Next(), m_start + milliseconds(300));
  EXPECT_EQ(At(300).skipped, 0U);
}

TEST_F(UvcPace, FramesAreSkippedWhileSenderIsBusy) {
  EXPECT_EQ(At(0).number, 0U);
  const FramePacer::Due busy = At(100, true);
  EXPECT_EQ(busy.number, std::nullopt);
  EXPECT_EQ(busy.firstSkipped, 1U);
  EXPECT_EQ(busy.skipped, 1U);
  EXPECT_EQ(At(150).number, std::nullopt);  // a skipped frame is not sent later
  EXPECT_EQ(At(200).number, 2U);
}

TEST_F(UvcPace, LateCallReturnsLatestFrameAndSkipsTheOthers) {
  EXPECT_EQ(At(0).number, 0U);
  const FramePacer::Due late = At(420);
  EXPECT_EQ(late.number, 4U);
  EXPECT_EQ(late.firstSkipped, 1U);
  EXPECT_EQ(late.skipped, 3U);
  const FramePacer::Due busy = At(720, true);
  EXPECT_EQ(busy.firstSkipped, 5U);
  EXPECT_EQ(busy.skipped, 3U);
}

TEST_F(UvcPace, FramesDoNotDriftInADay) {
  FramePacer pacer(m_start, 333'333);
  const std::uint64_t day = std::uint64_t{86400} * 30;
  EXPECT_EQ(pacer.Advance(pacer.TimeOf(day), false).number, day);
  EXPECT_EQ(pacer.TimeOf(day) - m_start, std::chrono::nanoseconds(std::int64_t{33'333'300} * 86400 * 30));
}

class UvcPayloads : public ::testing::Test {
 protected:
  // Fetches the only payload of a short frame and returns its frame id.
  int SendFrame() {
    m_sender.Send(m_frame, 0);
    m_sender.Request(1, 64);
    const auto answer = m_sender.Next();
    EXPECT_TRUE(answer);
    EXPECT_FALSE(m_sender.IsBusy());
    return answer ? answer->data[1] & kFrameId : -1;
  }

  const std::vector<std::uint8_t> m_frame{1, 2, 3};
  PayloadSender m_sender{[] { return PayloadSender::ClockReading{}; }};
};

TEST_F(UvcPayloads, FrameIdTogglesWithEachFrame) {
  m_sender.Start(100);
  EXPECT_EQ(SendFrame(), 0);
  EXPECT_EQ(SendFrame(), kFrameId);
  EXPECT_EQ(SendFrame(), 0);
  EXPECT_EQ(m_sender.FramesSent(), 3U);
}

TEST_F(UvcPayloads, FrameIdTogglesAfterUnfinishedFrame) {
  m_sender.Start(PayloadSender::kHeaderSize + 2);
  m_sender.Send(m_frame, 0);
  m_sender.Request(1, 64);
  ASSERT_TRUE(m_sender.Next());
  EXPECT_TRUE(m_sender.Stop());
  EXPECT_FALSE(m_sender.Stop());
  m_sender.Start(100);
  EXPECT_EQ(SendFrame(), kFrameId);
  EXPECT_EQ(m_sender.FramesSent(), 1U);
}

constexpr std::uint32_t kWidth = 160;
constexpr std::uint32_t kHeight = 120;
constexpr std::size_t kPixels = std::size_t{kWidth} * kHeight;

std::vector<std::uint8_t> FrameOf(std::uint32_t fourCc, std::uint32_t number, bool hasEndOfImage = true) {
  FrameSource source({fourCc, kWidth, kHeight, 333'333}, hasEndOfImage);
  const auto frame = source.Make(number, 0);
  return {frame.begin(), frame.end()};
}

// Extracts a plane: count bytes of a frame, step bytes apart.
std::vector<std::uint8_t> Every(const std::vector<std::uint8_t>& frame, std::size_t first, std::size_t step,
                                std::size_t count) {
  std::vector<std::uint8_t> plane;
  for (std::size_t i = 0; i < count; ++i) {
    plane.push_back(frame.at(first + i * step));
  }
  return plane;
}

std::optional<std::uint32_t> NumberIn(const std::vector<std::uint8_t>& luma) {
  return simulated::ReadFrameNumber(luma.data(), kWidth, kWidth, kHeight);
}

// Every second line of a chroma plane.
std::vector<std::uint8_t> HalfOfLines(const std::vector<std::uint8_t>& plane) {
  std::vector<std::uint8_t> half;
  for (std::size_t line = 0; line < kHeight; line += 2) {
    const auto begin = plane.begin() + static_cast<std::ptrdiff_t>(line * kWidth / 2);
    half.insert(half.end(), begin, begin + kWidth / 2);
  }
  return half;
}

TEST(UvcFrames, Nv12HasNumberAndColours) {
  const auto frame = FrameOf(kNv12, 0x123456);
  ASSERT_EQ(frame.size(), kPixels * 3 / 2);
  const auto luma = Every(frame, 0, 1, kPixels);
  EXPECT_EQ(NumberIn(luma), 0x123456U);
  const auto u = Every(frame, kPixels, 2, kPixels / 4);
  const auto v = Every(frame, kPixels + 1, 2, kPixels / 4);
  EXPECT_LT(simulated::CornerColourError(luma.data(), u.data(), v.data(), kWidth, kHeight), 3);
}

TEST(UvcFrames, UyvyHasNumberAndColours) {
  const auto frame = FrameOf(kUyvy, 77);
  ASSERT_EQ(frame.size(), kPixels * 2);
  const auto luma = Every(frame, 1, 2, kPixels);
  EXPECT_EQ(NumberIn(luma), 77U);
  const auto u = HalfOfLines(Every(frame, 0, 4, kPixels / 2));
  const auto v = HalfOfLines(Every(frame, 2, 4, kPixels / 2));
  EXPECT_LT(simulated::CornerColourError(luma.data(), u.data(), v.data(), kWidth, kHeight), 3);
}

TEST(UvcFrames, MjpgWithoutEoiDiffersOnlyInTheMarker) {
  auto whole = FrameOf(graph::kMjpg, 5);
  const auto cut = FrameOf(graph::kMjpg, 5, false);
  ASSERT_GT(whole.size(), 2U);
  EXPECT_EQ(whole[whole.size() - 2], 0xFF);
  EXPECT_EQ(whole[whole.size() - 1], 0xD9);
  whole.resize(whole.size() - 2);
  EXPECT_EQ(cut, whole);
}

TEST(UvcFrames, OptionOmitsTheEoi) {
  using Arguments = std::vector<std::string_view>;
  EXPECT_TRUE(ParseOptions(Arguments{"--socket", "x"}).model.hasEndOfImage);
  EXPECT_FALSE(ParseOptions(Arguments{"--socket", "x", "--no-eoi"}).model.hasEndOfImage);
}

}  // namespace
}  // namespace uvc
