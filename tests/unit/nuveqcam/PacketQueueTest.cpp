#include "recording/PacketQueue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>

namespace nuveqcam {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kNoWait{0};
constexpr milliseconds kTimeout{60000};

Packet OfSize(std::size_t size, std::uint8_t value = 0) {
  return {std::vector<std::uint8_t>(size, value), Clock::now()};
}

// Only a full queue is never idle.
bool IsFull(const PacketQueue& queue) {
  return queue.IdleTime(Clock::now() + std::chrono::hours(1)) == Clock::duration::zero();
}

// Waits until the clock advances and returns the new time.
Clock::time_point WaitForClockTick() {
  const auto begin = Clock::now();
  auto now = begin;
  while (now <= begin) {
    now = Clock::now();
  }
  return now;
}

// A Push on another thread that blocks.
class BlockedPush {
 public:
  explicit BlockedPush(PacketQueue& queue)
      : m_result(std::async(std::launch::async, [&queue] { return queue.Push(OfSize(1, 99)); })) {
    EXPECT_EQ(m_result.wait_for(milliseconds(100)), std::future_status::timeout);
  }
  bool Result() {
    EXPECT_EQ(m_result.wait_for(kTimeout), std::future_status::ready);
    return m_result.get();
  }

 private:
  std::future<bool> m_result;
};

TEST(PacketQueue, ReturnsPacketsInOrder) {
  PacketQueue queue(100);
  EXPECT_TRUE(queue.Push(OfSize(1, 1)));
  EXPECT_TRUE(queue.Push(OfSize(1, 2)));
  Packet packet;
  ASSERT_EQ(queue.Pop(packet, kNoWait), PopResult::kPacket);
  EXPECT_EQ(packet.bytes[0], 1);
  ASSERT_EQ(queue.Pop(packet, kNoWait), PopResult::kPacket);
  EXPECT_EQ(packet.bytes[0], 2);
  EXPECT_EQ(queue.Pop(packet, kNoWait), PopResult::kTimeout);
}

TEST(PacketQueue, HasTheArrivalsOfQueuedPackets) {
  PacketQueue queue(100);
  const auto first = Clock::now();
  const auto second = first + milliseconds(33);
  queue.Push({{1}, first});
  queue.Push({{2}, second});
  EXPECT_THAT(queue.QueuedArrivals(), testing::ElementsAre(first, second));
  Packet packet;
  ASSERT_EQ(queue.Pop(packet, kNoWait), PopResult::kPacket);
  EXPECT_THAT(queue.QueuedArrivals(), testing::ElementsAre(second));
}

TEST(PacketQueue, AcceptsAPacketLargerThanItsCapacity) {
  PacketQueue queue(10);
  EXPECT_TRUE(queue.Push(OfSize(100)));
  EXPECT_TRUE(IsFull(queue));
}

TEST(PacketQueue, BlocksPushWhileFull) {
  PacketQueue queue(10);
  queue.Push(OfSize(10));
  BlockedPush push(queue);
  Packet packet;
  ASSERT_EQ(queue.Pop(packet, kNoWait), PopResult::kPacket);
  EXPECT_TRUE(push.Result());
  ASSERT_EQ(queue.Pop(packet, kNoWait), PopResult::kPacket);
  EXPECT_EQ(packet.bytes[0], 99);
}

TEST(PacketQueue, UnboundedNeverBlocksPush) {
  PacketQueue queue(10);
  queue.Push(OfSize(10));
  BlockedPush push(queue);
  queue.SetUnbounded();
  EXPECT_TRUE(push.Result());
  EXPECT_TRUE(queue.Push(OfSize(1000)));
  EXPECT_FALSE(IsFull(queue));
}

TEST(PacketQueue, AbandonedRejectsPacketsAndEndsTheReader) {
  PacketQueue queue(10);
  queue.Push(OfSize(10));
  BlockedPush push(queue);
  queue.Abandon();
  EXPECT_FALSE(push.Result());
  EXPECT_FALSE(queue.Push(OfSize(1)));
  Packet packet;
  EXPECT_EQ(queue.Pop(packet, kTimeout), PopResult::kEnd);
}

TEST(PacketQueue, EndedReturnsQueuedPacketsFirst) {
  PacketQueue queue(10);
  queue.Push(OfSize(3));
  queue.End();
  Packet packet;
  EXPECT_EQ(queue.Pop(packet, kTimeout), PopResult::kPacket);
  EXPECT_EQ(queue.Pop(packet, kTimeout), PopResult::kEnd);
}

TEST(PacketQueue, WakesTheReader) {
  PacketQueue queue(10);
  auto popped = std::async(std::launch::async, [&queue] {
    Packet packet;
    return queue.Pop(packet, kTimeout);
  });
  queue.Push(OfSize(1));
  EXPECT_EQ(popped.get(), PopResult::kPacket);
}

TEST(PacketQueue, RecordsTheFirstArrival) {
  PacketQueue queue(100);
  EXPECT_EQ(queue.FirstArrival(), std::nullopt);
  const auto first = Clock::now() - milliseconds(500);
  queue.Push({{1}, first});
  EXPECT_EQ(queue.FirstArrival(), first);
  Packet packet;
  ASSERT_EQ(queue.Pop(packet, kNoWait), PopResult::kPacket);
  queue.Push(OfSize(1));
  EXPECT_EQ(queue.FirstArrival(), first);
}

TEST(PacketQueue, MeasuresTheTimeFromFirstToLatestArrival) {
  PacketQueue queue(100);
  EXPECT_EQ(queue.ReceivedTime(), milliseconds(0));
  const auto first = Clock::now() - milliseconds(500);
  queue.Push({{1}, first});
  EXPECT_EQ(queue.ReceivedTime(), milliseconds(0));
  queue.Push({{1}, first + milliseconds(300)});
  EXPECT_EQ(queue.ReceivedTime(), milliseconds(300));
  Packet packet;
  ASSERT_EQ(queue.Pop(packet, kNoWait), PopResult::kPacket);
  EXPECT_EQ(queue.ReceivedTime(), milliseconds(300));
}

TEST(PacketQueue, IsIdleSinceTheLatestPush) {
  const auto before = Clock::now();
  PacketQueue queue(100);
  const milliseconds later(1000);
  EXPECT_LE(queue.IdleTime(before + later), later);
  const auto beforePush = Clock::now();
  queue.Push(OfSize(1));
  EXPECT_LE(queue.IdleTime(beforePush + later), later);
  EXPECT_GE(queue.IdleTime(Clock::now() + later), later);
}

TEST(PacketQueue, IsNotIdleWhileFull) {
  PacketQueue queue(10);
  queue.Push(OfSize(10));
  EXPECT_EQ(queue.IdleTime(Clock::now() + kTimeout), Clock::duration::zero());
}

TEST(PacketQueue, IdleTimeRestartsWhenAFullQueueGetsRoom) {
  const milliseconds later(1000);
  for (const bool isUnbounded : {false, true}) {
    PacketQueue queue(10);
    queue.Push(OfSize(10));
    const auto before = WaitForClockTick();
    Packet packet;
    if (isUnbounded) {
      queue.SetUnbounded();
    } else {
      ASSERT_EQ(queue.Pop(packet, kNoWait), PopResult::kPacket);
    }
    EXPECT_LE(queue.IdleTime(before + later), later);
    EXPECT_GT(queue.IdleTime(Clock::now() + later), Clock::duration::zero());
  }
}

TEST(PacketQueue, RecordsALoss) {
  PacketQueue queue(10);
  EXPECT_FALSE(queue.HasLoss());
  queue.NoteLoss();
  EXPECT_TRUE(queue.HasLoss());
}

}  // namespace
}  // namespace nuveqcam
