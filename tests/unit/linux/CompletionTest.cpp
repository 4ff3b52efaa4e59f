// Waiting for the first frame of a graph.
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "graph/Completion.h"
#include "support/SystemCallOf_linux.h"
#include "support/linux/CaptureGraphTest.h"
#include "support/linux/TestJpegs.h"

namespace linux_support {
namespace {

constexpr std::chrono::seconds kMaxPause{10};
// Frames without a pause would keep a core busy.
constexpr std::chrono::milliseconds kFrameInterval{10};

using support::SystemCallOf;

using CompletionTest = CaptureGraphTest;

TEST_F(CompletionTest, FirstSampleCompletesAndCallbacksContinue) {
  BuildAndRun();
  EXPECT_EQ(WaitResult(0), E_ABORT) << "before the first sample";
  Stream({1});
  EXPECT_EQ(WaitForEvent(), kEventComplete);
  Stream({2, 3, 4});
  EXPECT_EQ(callback.Count(), 4U);
}

TEST_F(CompletionTest, StaysCompletedAfterStop) {
  BuildAndRun();
  Stream({1});
  EXPECT_EQ(WaitForEvent(), kEventComplete);
  EXPECT_EQ(WaitForEvent(), kEventComplete);
  EXPECT_EQ(Stop(), S_OK);
  EXPECT_EQ(WaitForEvent(), kEventComplete);
}

TEST_F(CompletionTest, WakesAWaitingThread) {
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

TEST_F(CompletionTest, WaitFailsBeforeTheFirstRun) {
  Build();
  EXPECT_EQ(WaitResult(0), VFW_E_WRONG_STATE);
  EXPECT_EQ(WaitResult(kInfinite), VFW_E_WRONG_STATE);
  EXPECT_EQ(Stop(), S_OK);
  EXPECT_EQ(WaitResult(kInfinite), VFW_E_WRONG_STATE);
}

TEST_F(CompletionTest, WaitTimesOut) {
  BuildAndRun();
  EXPECT_EQ(WaitResult(0), E_ABORT);
  EXPECT_EQ(WaitResult(20), E_ABORT);
  Stream({1});
  EXPECT_EQ(WaitResult(30'000), S_OK);
  EXPECT_EQ(WaitResult(0), S_OK);
}

TEST_F(CompletionTest, StopEndsAWaitOfAnotherThread) {
  Build();
  // A thread that waits too late finds the graph stopped. Each attempt gives it more time.
  HRESULT result = VFW_E_WRONG_STATE;
  for (std::chrono::milliseconds pause{1}; result != E_ABORT && pause < kMaxPause; pause *= 2) {
    ASSERT_EQ(Run(), S_OK);
    std::thread waiter([&] { result = WaitResult(kInfinite); });
    std::this_thread::sleep_for(pause);
    EXPECT_EQ(Stop(), S_OK);
    waiter.join();
    EXPECT_THAT(result, ::testing::AnyOf(E_ABORT, VFW_E_WRONG_STATE));
    EXPECT_NE(WaitResult(kInfinite), S_OK) << "stopped before it completed";
  }
  EXPECT_EQ(result, E_ABORT);
}

// Starts another run while a thread waits for the first one. The thread may wake up before or after that, so
// the tests repeat it.
class CompletionOfTwoRunsTest : public ::testing::Test {
 protected:
  static constexpr int kRounds = 20;

  // Returns the result of the wait for the first run.
  static HRESULT WaitAcrossRuns(bool completesSecondRun) {
    graph::Completion completion;
    completion.Begin();
    std::atomic<pid_t> waiterId = 0;
    HRESULT result = S_OK;
    Gate hasReturned;
    std::thread waiter([&] {
      waiterId = gettid();
      LONG code = 0;
      result = completion.Wait(kInfinite, code);
      hasReturned.Open();
    });
    EXPECT_TRUE(WaitFor([&] { return SystemCallOf(waiterId) == SYS_futex; }));
    completion.End();
    completion.Begin();
    if (completesSecondRun) {
      completion.Complete(kEventComplete);
    }
    EXPECT_TRUE(WaitFor([&] { return hasReturned.IsOpen(); }));
    completion.Complete(kEventComplete);
    waiter.join();
    return result;
  }
};

TEST_F(CompletionOfTwoRunsTest, WaitEndsAlthoughTheSecondRunHasStarted) {
  for (int round = 0; round < kRounds && !HasFailure(); ++round) {
    EXPECT_EQ(WaitAcrossRuns(false), E_ABORT);
  }
}

TEST_F(CompletionOfTwoRunsTest, WaitDoesNotReturnTheResultOfTheSecondRun) {
  for (int round = 0; round < kRounds && !HasFailure(); ++round) {
    EXPECT_EQ(WaitAcrossRuns(true), E_ABORT);
  }
}

TEST_F(CompletionTest, EventCodeIsZeroUnlessCompleted) {
  Build();
  LONG code = 99;
  EXPECT_EQ(graph.Wait(0, code), VFW_E_WRONG_STATE);
  EXPECT_EQ(code, 0);
  ASSERT_EQ(Run(), S_OK);
  code = 99;
  EXPECT_EQ(graph.Wait(0, code), E_ABORT);
  EXPECT_EQ(code, 0);
}

TEST_F(CompletionTest, EveryRunCompletesAnew) {
  BuildAndRun();
  Stream({1});
  EXPECT_EQ(Stop(), S_OK);
  ASSERT_EQ(Run(), S_OK);
  EXPECT_EQ(WaitResult(0), E_ABORT);
  Stream({2});
  EXPECT_EQ(WaitForEvent(), kEventComplete);
}

TEST_F(CompletionTest, EventCodeIsOptional) {
  BuildAndRun();
  Stream({1});
  EXPECT_EQ(graph.event->WaitForCompletion(kInfinite, nullptr), S_OK);
}

TEST_F(CompletionTest, FirstSampleDoesNotCompleteWithoutOneShot) {
  GraphSettings settings;
  settings.oneShot = FALSE;
  BuildAndRun(settings);
  Stream({1, 2});
  EXPECT_EQ(WaitResult(0), E_ABORT);
}

TEST_F(CompletionTest, AbortsWithoutFramesAndStreamingContinues) {
  Build();
  kernel.ExpireTimeouts(true);
  ASSERT_EQ(Run(), S_OK);
  EXPECT_EQ(WaitForEvent(), kEventErrorAbort);
  const std::uint64_t polls = kernel.CallsOf(kPollCall);
  Stream({1, 2});
  EXPECT_EQ(callback.Count(), 2U);
  EXPECT_LT(kernel.CallsOf(kPollCall), polls + 20) << "must wait without a timeout";
}

TEST_F(CompletionTest, DamagedFramesDoNotComplete) {
  BuildAndRun();
  FakeFrame damaged = Picture(1);
  damaged.flags = V4L2_BUF_FLAG_ERROR;
  ASSERT_TRUE(device->Deliver(damaged));
  // The stream thread may not have processed the damaged frame yet; in neither case is the graph complete.
  EXPECT_EQ(WaitResult(20), E_ABORT);
  Stream({2});
  EXPECT_EQ(WaitForEvent(), kEventComplete);
}

TEST_F(CompletionTest, AbortsIfAllFramesAreDamaged) {
  BuildAndRun();
  FakeFrame damaged = Picture(1);
  damaged.flags = V4L2_BUF_FLAG_ERROR;
  std::atomic<bool> hasEnded = false;
  std::thread driver([&] {
    while (!hasEnded) {
      device->Deliver(damaged);
      std::this_thread::sleep_for(kFrameInterval);
    }
  });
  EXPECT_EQ(WaitForEvent(), kEventErrorAbort);
  hasEnded = true;
  driver.join();
  Stream({2});
}

// Takes five seconds, the platform's timeout for the first frame.
TEST_F(CompletionTest, AbortsIfDamagedFramesArriveWithoutAPause) {
  BuildAndRun();
  device->Disconnect();
  EXPECT_EQ(WaitForEvent(), kEventErrorAbort);
  EXPECT_EQ(Stop(), S_OK);
}

// Takes five seconds, the platform's timeout for the first frame.
TEST_F(CompletionTest, AbortsIfNoFrameCanBeDecoded) {
  BuildAndRun(MjpgTo(MEDIASUBTYPE_ARGB32));
  FakeFrame undecodable;
  undecodable.bytes = TestJpeg(64, 48);
  undecodable.bytes.resize(undecodable.bytes.size() / 2);
  std::atomic<bool> hasEnded = false;
  std::thread driver([&] {
    while (!hasEnded) {
      device->Deliver(undecodable);
      std::this_thread::sleep_for(kFrameInterval);
    }
  });
  EXPECT_EQ(WaitForEvent(), kEventErrorAbort);
  hasEnded = true;
  driver.join();
  EXPECT_EQ(Stop(), S_OK);
  EXPECT_EQ(callback.Count(), 0U);
  EXPECT_GT(graph::LatestStreamStats().undecodable, 0U);
  EXPECT_FALSE(device->IsStreaming());
}

}  // namespace
}  // namespace linux_support
