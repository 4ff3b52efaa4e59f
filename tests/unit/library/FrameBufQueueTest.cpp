// The frame pool between a producer and a consumer thread.
#include "FrameBufQueue.h"

#include <array>
#include <atomic>
#include <thread>

#include "support/PlatformTest.h"

namespace {

using scripted::Fails;
using support::PlatformTest;
using support::WaitFor;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class FrameQueue : public PlatformTest {
 protected:
  void TearDown() override {
    queue.Uninit();
    PlatformTest::TearDown();
  }
  bool Init(std::uint32_t count = 5) { return queue.Init(count, 16, 16, ColorSpace::kYuy2); }

  FrameBufQueue queue;
};

TEST_F(FrameQueue, EmptySizeCreatesNoBuffer) {
  EXPECT_FALSE(queue.Init(5, 0, 16, ColorSpace::kYuy2));
  EXPECT_FALSE(queue.Init(5, 16, 0, ColorSpace::kYuy2));
  EXPECT_THAT(platform.Calls(), IsEmpty());
  EXPECT_TRUE(Init()) << "nothing was in the way";
}

TEST_F(FrameQueue, FramesHaveTheRequestedSizeAndLayout) {
  EXPECT_TRUE(queue.Init(2, 32, 8, ColorSpace::kArgb32));
  EXPECT_THAT(platform.Calls(),
              ElementsAre("VideoFrame::AllocBuffer(32, 8, 4)", "VideoFrame::AllocBuffer(32, 8, 4)"));
}

TEST_F(FrameQueue, DefaultLayoutIsI420) {
  VideoFrame* const frame = queue.CreateBuffer();
  EXPECT_EQ(frame, nullptr);
  EXPECT_THAT(platform.Calls(), ElementsAre("VideoFrame::AllocBuffer(0, 0, 1)"));
}

TEST_F(FrameQueue, SecondInitFailsAndKeepsThePool) {
  EXPECT_TRUE(Init());
  VideoFrame* const frame = queue.GetFreeBuffer();
  platform.ClearJournal();
  EXPECT_FALSE(Init());
  EXPECT_THAT(platform.Calls(), IsEmpty());
  queue.PutDataBuffer(frame);
  EXPECT_EQ(queue.GetDataBuffer(), frame);
  queue.Stop();
  for (int i = 0; i < 4; ++i) {
    EXPECT_NE(queue.GetFreeBuffer(), nullptr);
  }
  EXPECT_EQ(queue.GetFreeBuffer(), nullptr);
}

TEST_F(FrameQueue, InitFailsUntilAStoppedPoolIsFreed) {
  EXPECT_TRUE(Init());
  queue.Stop();
  EXPECT_FALSE(Init());
  queue.Uninit();
  EXPECT_TRUE(Init());
}

TEST_F(FrameQueue, InitFailsWhileAllBuffersOfAStoppedPoolAreInUse) {
  EXPECT_TRUE(Init(1));
  EXPECT_NE(queue.GetFreeBuffer(), nullptr);
  queue.Stop();
  EXPECT_FALSE(Init(1));
}

TEST_F(FrameQueue, FailedFrameAllocationLeavesNoPool) {
  platform.AnswersNth("VideoFrame::AllocBuffer", 3, Fails());
  EXPECT_FALSE(Init());
  EXPECT_THAT(platform.Alive(), IsEmpty());
  EXPECT_EQ(platform.CallCount("VideoFrame::AllocBuffer"), 3U) << "it stops at the first failure";
  // The frame whose allocation failed has no memory to release.
  EXPECT_EQ(platform.CallCount("VideoFrame::ReleaseBuffer"), 2U);
  EXPECT_EQ(queue.GetFreeBuffer(), nullptr);
  EXPECT_EQ(queue.GetDataBuffer(), nullptr);
  EXPECT_TRUE(Init());
}

TEST_F(FrameQueue, PoolOfZeroFramesIsInitialised) {
  EXPECT_TRUE(Init(0));
  EXPECT_FALSE(Init());
}

TEST_F(FrameQueue, BuffersPassInOrder) {
  EXPECT_TRUE(Init(3));
  std::array<VideoFrame*, 3> frames{};
  for (VideoFrame*& frame : frames) {
    frame = queue.GetFreeBuffer();
    queue.PutDataBuffer(frame);
  }
  for (VideoFrame* const frame : frames) {
    EXPECT_EQ(queue.GetDataBuffer(), frame);
    queue.PutFreeBuffer(frame);
  }
  for (VideoFrame* const frame : frames) {
    EXPECT_EQ(queue.GetFreeBuffer(), frame);
  }
}

TEST_F(FrameQueue, StoppedQueueReturnsQueuedBuffersThenNull) {
  EXPECT_TRUE(Init(3));
  VideoFrame* const first = queue.GetFreeBuffer();
  VideoFrame* const second = queue.GetFreeBuffer();
  queue.PutDataBuffer(first);
  queue.PutDataBuffer(second);
  queue.Stop();
  EXPECT_EQ(queue.GetDataBuffer(), first);
  EXPECT_EQ(queue.GetDataBuffer(), second);
  EXPECT_EQ(queue.GetDataBuffer(), nullptr);
  EXPECT_NE(queue.GetFreeBuffer(), nullptr);
  EXPECT_EQ(queue.GetFreeBuffer(), nullptr);
}

TEST_F(FrameQueue, StoppedQueueIgnoresPutButFreesTheBuffer) {
  EXPECT_TRUE(Init(1));
  VideoFrame* const frame = queue.GetFreeBuffer();
  queue.Stop();
  queue.PutDataBuffer(frame);
  queue.PutFreeBuffer(frame);
  EXPECT_EQ(queue.GetDataBuffer(), nullptr);
  EXPECT_EQ(queue.GetFreeBuffer(), nullptr);
  EXPECT_THAT(platform.Alive(), ElementsAre("frame"));
  queue.Uninit();
  EXPECT_THAT(platform.Alive(), IsEmpty());
}

TEST_F(FrameQueue, WaitingGetsReturnNullOnStopAndUninit) {
  for (const bool uninit : {false, true}) {
    EXPECT_TRUE(Init(1));
    VideoFrame* const taken = queue.GetFreeBuffer();
    EXPECT_NE(taken, nullptr);
    std::atomic<int> waiting = 0;
    const auto wait = [&](auto get) {
      return std::thread([&, get] {
        ++waiting;
        EXPECT_EQ((queue.*get)(), nullptr);
      });
    };
    std::array<std::thread, 4> threads = {
        wait(&FrameBufQueue::GetFreeBuffer), wait(&FrameBufQueue::GetFreeBuffer),
        wait(&FrameBufQueue::GetDataBuffer), wait(&FrameBufQueue::GetDataBuffer)};
    EXPECT_TRUE(WaitFor([&] { return waiting == 4; }));
    uninit ? queue.Uninit() : queue.Stop();
    for (std::thread& thread : threads) {
      thread.join();
    }
    queue.Uninit();
  }
}

TEST_F(FrameQueue, WaitingGetReturnsTheNextBuffer) {
  EXPECT_TRUE(Init(1));
  VideoFrame* const frame = queue.GetFreeBuffer();
  std::thread consumer([&] { EXPECT_EQ(queue.GetDataBuffer(), frame); });
  std::thread producer([&] { EXPECT_EQ(queue.GetFreeBuffer(), frame); });
  queue.PutDataBuffer(frame);
  consumer.join();
  queue.PutFreeBuffer(frame);
  producer.join();
}

TEST_F(FrameQueue, SecondStopAndUninitHaveNoEffect) {
  queue.Stop();
  queue.Uninit();
  EXPECT_TRUE(Init());
  queue.Stop();
  queue.Stop();
  queue.Uninit();
  queue.Uninit();
  EXPECT_THAT(platform.Alive(), IsEmpty());
}

TEST_F(FrameQueue, PutOfNullHasNoEffect) {
  EXPECT_TRUE(Init(1));
  queue.PutDataBuffer(nullptr);
  queue.PutFreeBuffer(nullptr);
  EXPECT_NE(queue.GetFreeBuffer(), nullptr);
  queue.Stop();
  EXPECT_EQ(queue.GetDataBuffer(), nullptr);
  EXPECT_EQ(queue.GetFreeBuffer(), nullptr);
}

TEST_F(FrameQueue, DestroyBufferOfNullHasNoEffect) {
  queue.DestroyBuffer(nullptr);
  EXPECT_THAT(platform.Calls(), IsEmpty());
}

TEST_F(FrameQueue, DestructorFreesTheFramesOfARunningQueue) {
  {
    FrameBufQueue other;
    EXPECT_TRUE(other.Init(5, 16, 16, ColorSpace::kYuy2));
    EXPECT_NE(other.GetFreeBuffer(), nullptr);
  }
  EXPECT_THAT(platform.Alive(), IsEmpty());
}

TEST_F(FrameQueue, FramesReleaseTheirMemoryBeforeDestruction) {
  EXPECT_TRUE(Init(2));
  platform.ClearJournal();
  queue.Uninit();
  EXPECT_THAT(platform.Calls(), ElementsAre("VideoFrame::ReleaseBuffer()", "VideoFrame::ReleaseBuffer()"));
}

}  // namespace
