// The frame pool with many threads, stopped and recreated repeatedly.
#include <algorithm>
#include <array>
#include <atomic>
#include <thread>

#include "FrameBufQueue.h"
#include "support/PlatformTest.h"

namespace {

using support::PlatformTest;
using support::WaitFor;

constexpr std::size_t kProducers = 8;
constexpr std::size_t kConsumers = 8;
constexpr std::uint32_t kPool = 5;
constexpr std::uint32_t kStressSide = 16;

// A frame carries its number in every element, and 0 after it has been taken. The memory is not atomic: only
// the queue synchronises accesses, so that the thread sanitizer finds errors of the queue.
std::uint64_t* PlacesOf(VideoFrame* frame) { return reinterpret_cast<std::uint64_t*>(frame->data); }
std::size_t PlaceCount(const VideoFrame* frame) { return frame->size / sizeof(std::uint64_t); }

void PutNumber(VideoFrame* frame, std::uint64_t number) {
  std::fill_n(PlacesOf(frame), PlaceCount(frame), number);
}

std::uint64_t TakeNumber(VideoFrame* frame) {
  const std::uint64_t number = *PlacesOf(frame);
  const auto others = std::count_if(PlacesOf(frame), PlacesOf(frame) + PlaceCount(frame),
                                    [&](std::uint64_t place) { return place != number; });
  EXPECT_EQ(others, 0) << "a frame of two numbers";
  PutNumber(frame, 0);
  return number;
}

// A pool whose frames have an index, and that records the numbers that it held when it was freed.
class WatchedQueue : public FrameBufQueue {
 public:
  ~WatchedQueue() override { Uninit(); }
  VideoFrame* CreateBuffer() override {
    VideoFrame* const frame = FrameBufQueue::CreateBuffer();
    frame->unused = m_made++ % kPool;
    PutNumber(frame, 0);
    return frame;
  }
  void DestroyBuffer(VideoFrame* frame) override {
    left += TakeNumber(frame);
    FrameBufQueue::DestroyBuffer(frame);
  }

  std::uint64_t left = 0;

 private:
  std::uint32_t m_made = 0;
};

// Tracks which frames are in use. Relaxed atomics, so that they add no synchronisation between threads.
class Holders {
 public:
  void Take(const VideoFrame* frame) {
    EXPECT_FALSE(m_held.at(frame->unused).exchange(true, std::memory_order_relaxed)) << "two hold one frame";
  }
  void Give(const VideoFrame* frame) { m_held.at(frame->unused).store(false, std::memory_order_relaxed); }

 private:
  std::array<std::atomic<bool>, kPool> m_held{};
};

// One round of producers and consumers on a running queue. Counts the frames put and taken, by number.
class Round {
 public:
  Round(WatchedQueue& queue, std::uint64_t framesEach) : m_queue(queue), m_framesEach(framesEach) {
    for (std::size_t i = 0; i < kProducers; ++i) {
      m_threads.emplace_back([this, i] { Produce(i); });
    }
    for (std::size_t i = 0; i < kConsumers; ++i) {
      m_threads.emplace_back([this] { Consume(); });
    }
  }
  Round(const Round&) = delete;
  Round& operator=(const Round&) = delete;
  ~Round() { End(); }

  // Stops the queue, which ends all threads.
  void End() {
    m_queue.Stop();
    for (std::thread& thread : m_threads) {
      if (thread.joinable()) {
        thread.join();
      }
    }
  }
  bool WaitForConsumed(std::uint64_t frames) {
    return WaitFor([&] { return m_consumed.load(std::memory_order_relaxed) >= frames; });
  }

  std::uint64_t Consumed() const { return m_consumed; }
  std::uint64_t In() const { return m_in; }
  std::uint64_t Out() const { return m_out; }

 private:
  void Produce(std::size_t producer) {
    std::uint64_t in = 0;
    for (std::uint64_t i = 1; i <= m_framesEach; ++i) {
      VideoFrame* const frame = m_queue.GetFreeBuffer();
      if (frame == nullptr) {
        break;
      }
      m_holders.Take(frame);
      EXPECT_EQ(TakeNumber(frame), 0U) << "what comes back is empty";
      const std::uint64_t number = (i << 8) | producer;
      PutNumber(frame, number);
      in += number;
      m_holders.Give(frame);
      m_queue.PutDataBuffer(frame);
    }
    m_in += in;
  }

  void Consume() {
    std::uint64_t out = 0;
    while (VideoFrame* const frame = m_queue.GetDataBuffer()) {
      m_holders.Take(frame);
      const std::uint64_t number = TakeNumber(frame);
      EXPECT_NE(number, 0U) << "a frame that comes twice";
      out += number;
      m_holders.Give(frame);
      m_queue.PutFreeBuffer(frame);
      // After the return of the buffer, since the queue may be stopped as soon as all frames are counted.
      m_consumed.fetch_add(1, std::memory_order_relaxed);
    }
    m_out += out;
  }

  WatchedQueue& m_queue;
  const std::uint64_t m_framesEach;
  Holders m_holders;
  std::atomic<std::uint64_t> m_in = 0;
  std::atomic<std::uint64_t> m_out = 0;
  std::atomic<std::uint64_t> m_consumed = 0;
  std::vector<std::thread> m_threads;
};

class QueueStress : public PlatformTest {
 protected:
  void SetUp() override {
    PlatformTest::SetUp();
    platform.SetRecording(false);
  }
  bool Init() { return queue.Init(kPool, kStressSide, kStressSide, ColorSpace::kYuy2); }

  WatchedQueue queue;
};

TEST_F(QueueStress, EveryFramePassesOnceWithAnyNumberOfThreads) {
  constexpr std::uint64_t kFramesEach = 1000;
  ASSERT_TRUE(Init());
  Round round(queue, kFramesEach);
  ASSERT_TRUE(round.WaitForConsumed(kProducers * kFramesEach));
  round.End();
  EXPECT_EQ(round.Consumed(), kProducers * kFramesEach);
  EXPECT_EQ(round.Out(), round.In());
  for (std::uint32_t i = 0; i < kPool; ++i) {
    EXPECT_NE(queue.GetFreeBuffer(), nullptr);
  }
  queue.Uninit();
  EXPECT_EQ(queue.left, 0U);
}

TEST_F(QueueStress, StopLosesNoFrame) {
  constexpr std::uint64_t kEndless = 1'000'000;
  for (std::uint64_t number = 0; number < 15; ++number) {
    ASSERT_TRUE(Init());
    queue.left = 0;
    Round round(queue, kEndless);
    // From immediately to after all threads have started.
    ASSERT_TRUE(round.WaitForConsumed(number * number));
    round.End();
    queue.Uninit();
    EXPECT_EQ(round.Out() + queue.left, round.In());
  }
}

}  // namespace
