// Running, stopping, and waiting for the first frame.
#include <chrono>
#include <thread>

#include "support/linux/CaptureGraphTest.h"

namespace {

constexpr LONG kForEver = -1;
constexpr std::chrono::seconds kPatience{10};

using Completion = GraphTest;
using RunAndStop = GraphTest;
using LostDevice = GraphTest;

// --- Waiting ---

TEST_F(Completion, ComesWithTheFirstSampleAndCallbacksGoOn) {
  BuildAndRun();
  EXPECT_EQ(WaitResult(0), E_ABORT) << "before the first";
  Stream({1});
  EXPECT_EQ(WaitForEvent(), kEventComplete);
  Stream({2, 3, 4});
  EXPECT_EQ(callback.Count(), 4U);
}

TEST_F(Completion, IsSeenAgainAlsoAfterTheStop) {
  BuildAndRun();
  Stream({1});
  EXPECT_EQ(WaitForEvent(), kEventComplete);
  EXPECT_EQ(WaitForEvent(), kEventComplete);
  EXPECT_EQ(Stop(), S_OK);
  EXPECT_EQ(WaitForEvent(), kEventComplete);
}

TEST_F(Completion, IsNoticedByAThreadThatWaits) {
  BuildAndRun();
  std::atomic<bool> hasCompleted = false;
  std::thread waiter([&] {
    EXPECT_EQ(WaitForEvent(), kEventComplete);
    hasCompleted = true;
  });
  Stream({1});
  waiter.join();
  EXPECT_TRUE(hasCompleted);
}

TEST_F(Completion, CannotBeWaitedForBeforeTheGraphHasRun) {
  Build();
  EXPECT_EQ(WaitResult(0), VFW_E_WRONG_STATE);
  EXPECT_EQ(WaitResult(kForEver), VFW_E_WRONG_STATE);
  EXPECT_EQ(Stop(), S_OK);
  EXPECT_EQ(WaitResult(kForEver), VFW_E_WRONG_STATE);
}

TEST_F(Completion, WaitEndsAfterItsTimeOut) {
  BuildAndRun();
  EXPECT_EQ(WaitResult(0), E_ABORT);
  EXPECT_EQ(WaitResult(20), E_ABORT);
  Stream({1});
  EXPECT_EQ(WaitResult(30'000), S_OK);
  EXPECT_EQ(WaitResult(0), S_OK);
}

TEST_F(Completion, WaitEndsWhenAnotherThreadStopsTheGraph) {
  Build();
  // A waiter that comes too late finds the graph stopped; give each one more time than the one before.
  HRESULT result = VFW_E_WRONG_STATE;
  for (std::chrono::milliseconds pause{1}; result != E_ABORT && pause < kPatience; pause *= 2) {
    ASSERT_EQ(Run(), S_OK);
    std::thread waiter([&] { result = WaitResult(kForEver); });
    std::this_thread::sleep_for(pause);
    EXPECT_EQ(Stop(), S_OK);
    waiter.join();
    EXPECT_THAT(result, ::testing::AnyOf(E_ABORT, VFW_E_WRONG_STATE));
    EXPECT_NE(WaitResult(kForEver), S_OK) << "stopped before it completed";
  }
  EXPECT_EQ(result, E_ABORT);
}

TEST_F(Completion, OfALaterRunIsWaitedForAfresh) {
  BuildAndRun();
  Stream({1});
  EXPECT_EQ(Stop(), S_OK);
  ASSERT_EQ(Run(), S_OK);
  EXPECT_EQ(WaitResult(0), E_ABORT);
  Stream({2});
  EXPECT_EQ(WaitForEvent(), kEventComplete);
}

TEST_F(Completion, NeedNotBeAskedForItsCode) {
  BuildAndRun();
  Stream({1});
  EXPECT_EQ(graph.event->WaitForCompletion(kForEver, nullptr), S_OK);
}

TEST_F(Completion, DoesNotComeWithTheFirstSampleUnlessAskedFor) {
  GraphSettings settings;
  settings.oneShot = FALSE;
  BuildAndRun(settings);
  Stream({1, 2});
  EXPECT_EQ(WaitResult(0), E_ABORT);
}

TEST_F(Completion, ComesAsAnAbortWhenNoFrameCameAndStreamingGoesOn) {
  Build();
  kernel.LetTimeRunOut(true);
  ASSERT_EQ(Run(), S_OK);
  EXPECT_EQ(WaitForEvent(), kEventErrorAbort);
  kernel.LetTimeRunOut(false);
  Stream({1, 2});
  EXPECT_EQ(callback.Count(), 2U);
}

TEST_F(Completion, DoesNotComeWithDamagedFrames) {
  BuildAndRun();
  FakeFrame damaged = Picture(1);
  damaged.flags = V4L2_BUF_FLAG_ERROR;
  ASSERT_TRUE(device->Deliver(damaged));
  // The next buffer is only filled after the damaged one has been looked at or beside it: neither completes.
  EXPECT_EQ(WaitResult(20), E_ABORT);
  Stream({2});
  EXPECT_EQ(WaitForEvent(), kEventComplete);
}

TEST_F(Completion, ComesAsAnAbortWhenNothingButDamagedFramesCame) {
  BuildAndRun();
  FakeFrame damaged = Picture(1);
  damaged.flags = V4L2_BUF_FLAG_ERROR;
  std::atomic<bool> hasEnded = false;
  std::thread driver([&] {
    while (!hasEnded) {
      device->Deliver(damaged);
    }
  });
  EXPECT_EQ(WaitForEvent(), kEventErrorAbort);
  hasEnded = true;
  driver.join();
  Stream({2});
}

// --- Running and stopping ---

TEST_F(RunAndStop, BringNothingBeforeAndNothingAfter) {
  Build();
  EXPECT_FALSE(device->IsStreaming());
  ASSERT_EQ(Run(), S_OK);
  EXPECT_TRUE(device->IsStreaming());
  Stream({1, 2});
  EXPECT_EQ(Stop(), S_OK);
  EXPECT_FALSE(device->IsStreaming());
  EXPECT_EQ(device->Mappings(), 0U);
  device->Supply(Picture(3));
  EXPECT_EQ(callback.Count(), 2U);
}

TEST_F(RunAndStop, MayBeCalledWithoutNeed) {
  Build();
  EXPECT_EQ(Stop(), S_OK) << "never run";
  ASSERT_EQ(Run(), S_OK);
  EXPECT_GE(Run(), 0) << "running";
  Stream({1});
  EXPECT_EQ(Stop(), S_OK);
  EXPECT_EQ(Stop(), S_OK) << "stopped";
}

TEST_F(RunAndStop, MayFollowEachOtherManyTimes) {
  Build();
  for (std::uint8_t round = 1; round <= 20; ++round) {
    ASSERT_EQ(Run(), S_OK) << int{round};
    Stream({round});
    ASSERT_EQ(Stop(), S_OK) << int{round};
  }
  EXPECT_EQ(callback.Count(), 20U);
}

TEST_F(RunAndStop, MayFollowEachOtherWithoutAFrame) {
  Build();
  for (int round = 0; round < 50; ++round) {
    ASSERT_EQ(Run(), S_OK) << round;
    ASSERT_EQ(Stop(), S_OK) << round;
  }
}

TEST_F(RunAndStop, StopWaitsForTheCallback) {
  BuildAndRun();
  callback.CloseGate();
  ASSERT_TRUE(device->Deliver(Picture(1)));
  ASSERT_TRUE(callback.WaitForOneAtTheGate());
  std::atomic<bool> hasStopped = false;
  std::thread stopper([&] {
    EXPECT_EQ(Stop(), S_OK);
    EXPECT_FALSE(callback.IsInCallback());
    hasStopped = true;
  });
  device->Supply(Picture(2));
  device->Supply(Picture(3));
  // Time for a Stop that does not wait to show itself.
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_FALSE(hasStopped);
  callback.OpenGate();
  stopper.join();
  const std::size_t count = callback.Count();
  EXPECT_GE(count, 1U);
  EXPECT_FALSE(device->IsStreaming());
  device->Supply(Picture(4));
  EXPECT_EQ(callback.Count(), count);
}

TEST_F(RunAndStop, StopMayBeCalledByTwoThreads) {
  BuildAndRun();
  callback.CloseGate();
  ASSERT_TRUE(device->Deliver(Picture(1)));
  ASSERT_TRUE(callback.WaitForOneAtTheGate());
  std::thread first([&] { EXPECT_EQ(Stop(), S_OK); });
  std::thread second([&] { EXPECT_EQ(Stop(), S_OK); });
  callback.OpenGate();
  first.join();
  second.join();
  EXPECT_FALSE(device->IsStreaming());
}

TEST_F(RunAndStop, StopFromTheCallbackDoesNotWaitForItself) {
  Build();
  std::atomic<HRESULT> result = E_UNEXPECTED;
  callback.onFrame = [&](const CollectedFrame&) { result = Stop(); };
  ASSERT_EQ(Run(), S_OK);
  Stream({1});
  EXPECT_NE(result, E_UNEXPECTED);
  EXPECT_EQ(Stop(), S_OK);
  EXPECT_FALSE(device->IsStreaming());
}

TEST_F(RunAndStop, GraphMayBeReleasedFromTheCallback) {
  Build();
  callback.onFrame = [&](const CollectedFrame&) { graph.Release(); };
  ASSERT_EQ(Run(), S_OK);
  ASSERT_TRUE(device->Deliver(Picture(1)));
  ASSERT_TRUE(callback.WaitForFrames(1));
  EXPECT_TRUE(WaitUntil([&] { return com::LiveObjects() == 0 && device->OpenHandles() == 0; }));
}

TEST_F(RunAndStop, ReleasingARunningGraphStopsIt) {
  BuildAndRun();
  Stream({1});
  graph.Release();
  EXPECT_FALSE(device->IsStreaming());
  EXPECT_EQ(device->OpenHandles(), 0U);
  EXPECT_EQ(callback.References(), 0U);
}

TEST_F(RunAndStop, GraphLivesByAnyOfItsInterfaces) {
  BuildAndRun();
  const ComPtr<IMediaControl> control = graph.control;
  graph.Release();
  EXPECT_TRUE(device->Deliver(Picture(1)));
  EXPECT_TRUE(callback.WaitForFrames(1));
  EXPECT_EQ(control->Stop(), S_OK);
}

TEST_F(RunAndStop, GraphWithNothingConnectedRunsNothing) {
  ASSERT_EQ(graph.Create(), S_OK);
  static_cast<void>(Run());
  EXPECT_EQ(Stop(), S_OK);
}

// --- The device goes ---

TEST_F(LostDevice, BeforeTheFirstFrameEndsTheWait) {
  BuildAndRun();
  std::thread waiter([&] { EXPECT_EQ(WaitForEvent(), kEventDeviceLost); });
  UnplugLaptopCamera();
  waiter.join();
  EXPECT_EQ(Stop(), S_OK);
  EXPECT_TRUE(graph::LatestStreamStats().isDisconnected);
}

TEST_F(LostDevice, WhileStreamingEndsTheStreamAndStopWorks) {
  BuildAndRun();
  Stream({1, 2, 3});
  UnplugLaptopCamera();
  ASSERT_TRUE(WaitUntil([] { return graph::LatestStreamStats().isDisconnected; }));
  EXPECT_EQ(Stop(), S_OK);
  EXPECT_EQ(WaitForEvent(), kEventComplete) << "the first frame had come";
  EXPECT_EQ(callback.Count(), 3U);
  EXPECT_EQ(Run(), kGone);
}

TEST_F(LostDevice, WhileACallbackIsBusyEndsTheStreamToo) {
  BuildAndRun();
  callback.CloseGate();
  ASSERT_TRUE(device->Deliver(Picture(1)));
  ASSERT_TRUE(callback.WaitForOneAtTheGate());
  UnplugLaptopCamera();
  callback.OpenGate();
  ASSERT_TRUE(WaitUntil([] { return graph::LatestStreamStats().isDisconnected; }));
  EXPECT_EQ(Stop(), S_OK);
}

TEST_F(LostDevice, BetweenBuildingAndRunningIsNoticed) {
  Build();
  UnplugLaptopCamera();
  EXPECT_EQ(Run(), kGone);
  EXPECT_EQ(Stop(), S_OK);
}

TEST_F(LostDevice, ThatComesBackServesANewGraph) {
  BuildAndRun();
  Stream({1});
  UnplugLaptopCamera();
  EXPECT_EQ(Stop(), S_OK);
  graph.Release();
  BuildAndRun();
  EXPECT_FALSE(graph::LatestStreamStats().isDisconnected);
  Stream({2, 3});
  EXPECT_EQ(WaitForEvent(), kEventComplete);
}

TEST_F(LostDevice, AtAnyMomentEndsEverythingAllTheSame) {
  for (int round = 0; round < 40; ++round) {
    Build();
    std::atomic<bool> isStopped = false;
    ASSERT_EQ(Run(), S_OK);
    std::thread driver([&] {
      while (!isStopped) {
        device->Supply(Picture(1));
        std::this_thread::yield();
      }
    });
    std::thread waiter([&] { static_cast<void>(WaitResult(kForEver)); });
    std::thread thief([&, round] {
      std::this_thread::sleep_for(std::chrono::microseconds(round * 50));
      UnplugLaptopCamera();
    });
    std::this_thread::sleep_for(std::chrono::microseconds((40 - round) * 50));
    EXPECT_EQ(Stop(), S_OK);
    isStopped = true;
    driver.join();
    waiter.join();
    thief.join();
    graph.Release();
    ASSERT_EQ(device->OpenHandles(), 0U);
  }
}

TEST_F(LostDevice, IsAlsoOneThatFailsAllTheTime) {
  BuildAndRun();
  kernel.Fail(VIDIOC_DQBUF, EIO);
  device->Supply(Picture(1));
  EXPECT_THAT(WaitForEvent(), ::testing::AnyOf(kEventDeviceLost, kEventErrorAbort));
  EXPECT_EQ(Stop(), S_OK);
}

}  // namespace
