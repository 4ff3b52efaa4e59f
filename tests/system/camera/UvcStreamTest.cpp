// Tests of the camera's stream: frame pacing, payloads and frame formats.
#include <gtest/gtest.h>

#include <numeric>
#include <optional>
#include <stdexcept>
#include <vector>

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
  using Answers = std::vector<std::vector<std::uint8_t>>;

  void Send(std::size_t size) {
    m_frame.resize(size);
    std::iota(m_frame.begin(), m_frame.end(), std::uint8_t{1});
    m_sender.Send(m_frame, 0x11223344);
  }
  // Sends requests of the given length until the whole frame is fetched; returns the answers.
  Answers Fetch(std::size_t length) {
    Answers answers;
    while (m_sender.IsBusy() && answers.size() < 100) {
      m_sender.Request(m_nextId, length);
      const auto answer = m_sender.Next();
      EXPECT_TRUE(answer && answer->id == m_nextId);
      ++m_nextId;
      answers.emplace_back(answer->data.begin(), answer->data.end());
    }
    return answers;
  }
  static std::vector<std::size_t> SizesOf(const Answers& answers) {
    std::vector<std::size_t> sizes;
    for (const auto& answer : answers) {
      sizes.push_back(answer.size());
    }
    return sizes;
  }
  using Sizes = std::vector<std::size_t>;

  std::uint64_t m_nextId = 1;
  std::vector<std::uint8_t> m_frame;
  PayloadSender m_sender{[] { return PayloadSender::ClockReading{0x55667788, 0x0F23}; }};
};

TEST_F(UvcPayloads, HeaderHasFlagsAndTimestamps) {
  m_sender.Start(100);
  Send(3);
  EXPECT_EQ(Fetch(64), (Answers{{12, kEndOfHeader | kHasScr | kHasPts | kEndOfFrame, 0x44, 0x33, 0x22, 0x11,
                                 0x88, 0x77, 0x66, 0x55, 0x23, 0x07, 1, 2, 3}}));
}

TEST_F(UvcPayloads, FrameIdTogglesWithEachFrame) {
  m_sender.Start(100);
  for (const unsigned bit : {0U, 1U, 0U}) {
    Send(3);
    EXPECT_EQ(Fetch(64).at(0).at(1) & kFrameId, bit);
  }
  EXPECT_EQ(m_sender.FramesSent(), 3U);
}

TEST_F(UvcPayloads, FrameIdTogglesAfterDroppedFrame) {
  m_sender.Start(20);
  Send(20);
  m_sender.Request(1, 20);
  ASSERT_TRUE(m_sender.Next());
  EXPECT_TRUE(m_sender.Stop());
  EXPECT_FALSE(m_sender.Stop());
  m_sender.Start(20);
  Send(3);
  EXPECT_EQ(Fetch(64).at(0).at(1) & kFrameId, kFrameId);
  EXPECT_EQ(m_sender.FramesSent(), 1U);
}

TEST_F(UvcPayloads, FrameIsSplitIntoPayloadsAndLastOneHasEndOfFrame) {
  m_sender.Start(20);  // 8 bytes of the frame in each payload
  Send(19);
  const Answers answers = Fetch(64);
  ASSERT_EQ(SizesOf(answers), (Sizes{20, 20, 15}));
  std::vector<std::uint8_t> joined;
  for (const auto& answer : answers) {
    EXPECT_EQ(answer[0], 12);
    EXPECT_EQ((answer[1] & kEndOfFrame) != 0, &answer == &answers.back());
    joined.insert(joined.end(), answer.begin() + 12, answer.end());
  }
  EXPECT_EQ(joined, m_frame);
}

TEST_F(UvcPayloads, PayloadIsSplitByRequestLength) {
  m_sender.Start(100);
  Send(30);
  const Answers answers = Fetch(8);  // splits the header
  EXPECT_EQ(SizesOf(answers), (Sizes{8, 8, 8, 8, 8, 2}));
  EXPECT_EQ(answers[1], (std::vector<std::uint8_t>{0x66, 0x55, 0x23, 0x07, 1, 2, 3, 4}));
}

TEST_F(UvcPayloads, PayloadThatFillsRequestsEndsWithEmptyAnswerUnlessItHasMaxSize) {
  m_sender.Start(100);
  Send(20);
  EXPECT_EQ(SizesOf(Fetch(16)), (Sizes{16, 16, 0}));
  m_sender.Start(32);
  Send(20);
  EXPECT_EQ(SizesOf(Fetch(16)), (Sizes{16, 16}));
}

TEST_F(UvcPayloads, PayloadOfWholePacketsIsSplitToAvoidEmptyPacket) {
  m_sender.Start(100);
  Send(64 - PayloadSender::kHeaderSize);
  const auto answers = Fetch(64);
  EXPECT_EQ(SizesOf(answers), (Sizes{63, PayloadSender::kHeaderSize + 1}));
  EXPECT_EQ(answers[0][1] & kEndOfFrame, 0);
  EXPECT_NE(answers[1][1] & kEndOfFrame, 0);
}

TEST_F(UvcPayloads, RequestsWaitForAFrameAndCanBeCancelled) {
  m_sender.Start(100);
  m_sender.Request(7, 64);
  m_sender.Request(8, 64);
  EXPECT_FALSE(m_sender.Next());
  EXPECT_TRUE(m_sender.Cancel(7));
  EXPECT_FALSE(m_sender.Cancel(7));
  Send(3);
  const auto answer = m_sender.Next();
  ASSERT_TRUE(answer);
  EXPECT_EQ(answer->id, 8U);
  EXPECT_FALSE(m_sender.Next());
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

TEST(UvcFrames, GreyHasNumber) {
  const auto frame = FrameOf(kGrey, 78);
  ASSERT_EQ(frame.size(), kPixels);
  EXPECT_EQ(NumberIn(frame), 78U);
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

TEST(UvcFrames, H264CannotStream) { EXPECT_THROW(FrameOf(kH264, 0), std::invalid_argument); }

}  // namespace
}  // namespace uvc
