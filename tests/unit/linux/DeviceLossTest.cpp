// Devices that are unplugged, disconnected or broken while a graph uses them.
#include <chrono>
#include <thread>

#include "support/linux/CaptureGraphTest.h"

namespace linux_support {
namespace {

using DeviceLossTest = CaptureGraphTest;

TEST_F(DeviceLossTest, EndsTheWaitForTheFirstFrame) {
  BuildAndRun();
  std::thread waiter([&] { EXPECT_EQ(WaitForEvent(), kEventDeviceLost); });
  UnplugLaptopCamera();
  waiter.join();
  EXPECT_EQ(Stop(), S_OK);
  EXPECT_TRUE(graph::LatestStreamStats().isDisconnected);
}

TEST_F(DeviceLossTest, EndsAStreamThatCanStillBeStopped) {
  BuildAndRun();
  Stream({1, 2, 3});
  UnplugLaptopCamera();
  ASSERT_TRUE(WaitFor([] { return graph::LatestStreamStats().isDisconnected; }));
  EXPECT_EQ(Stop(), S_OK);
  EXPECT_EQ(WaitForEvent(), kEventComplete) << "the first frame had arrived";
  EXPECT_EQ(callback.Count(), 3U);
  EXPECT_EQ(Run(), kDeviceGone);
}

TEST_F(DeviceLossTest, EndsAStreamWithABlockedCallback) {
  BuildAndRun();
  callback.BlockCallbacks();
  ASSERT_TRUE(device->Deliver(Picture(1)));
  ASSERT_TRUE(callback.WaitForBlockedCallback());
  UnplugLaptopCamera();
  callback.UnblockCallbacks();
  ASSERT_TRUE(WaitFor([] { return graph::LatestStreamStats().isDisconnected; }));
  EXPECT_EQ(Stop(), S_OK);
}

TEST_F(DeviceLossTest, RunFailsIfTheDeviceIsGone) {
  Build();
  UnplugLaptopCamera();
  EXPECT_EQ(Run(), kDeviceGone);
  EXPECT_EQ(Stop(), S_OK);
}

TEST_F(DeviceLossTest, ReconnectedDeviceWorksInANewGraph) {
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

TEST_F(DeviceLossTest, UnplugAtAnyMomentIsHandled) {
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
    std::thread waiter([&] { static_cast<void>(WaitResult(kInfinite)); });
    std::thread unplugger([&, round] {
      std::this_thread::sleep_for(std::chrono::microseconds(round * 50));
      UnplugLaptopCamera();
    });
    std::this_thread::sleep_for(std::chrono::microseconds((40 - round) * 50));
    EXPECT_EQ(Stop(), S_OK);
    isStopped = true;
    driver.join();
    waiter.join();
    unplugger.join();
    graph.Release();
    ASSERT_EQ(device->OpenHandles(), 0U);
  }
}

TEST_F(DeviceLossTest, PersistentDequeueErrorsEndTheStream) {
  BuildAndRun();
  kernel.Fail(VIDIOC_DQBUF, EIO);
  device->Supply(Picture(1));
  EXPECT_EQ(WaitForEvent(), kEventDeviceLost);
  EXPECT_EQ(graph::LatestStreamStats().damaged, 29U) << "without the last failure";
  EXPECT_EQ(Stop(), S_OK);
  kernel.FailNothing();
  ASSERT_EQ(Run(), S_OK);
  kernel.Fail(VIDIOC_DQBUF, EIO, Persistence::kTransient);
  Stream({1});
}

TEST_F(DeviceLossTest, TransientDequeueErrorsDoNotEndTheStream) {
  BuildAndRun();
  // More than the consecutive failures after which a device counts as disconnected.
  constexpr std::uint64_t kRounds = 40;
  for (std::uint64_t i = 0; i < kRounds; ++i) {
    for (const int error : {EAGAIN, EIO}) {
      kernel.Fail(VIDIOC_DQBUF, error, Persistence::kTransient);
      Stream({1});
      ASSERT_FALSE(HasFailure()) << "round " << i;
    }
  }
  EXPECT_EQ(Stop(), S_OK);
  EXPECT_EQ(graph::LatestStreamStats().damaged, kRounds);
  EXPECT_FALSE(graph::LatestStreamStats().isDisconnected);
}

TEST_F(DeviceLossTest, OtherErrorsEndTheStream) {
  for (const unsigned long call : std::initializer_list<unsigned long>{VIDIOC_DQBUF, kPollCall}) {
    for (const int error : {EPERM, EINVAL, ENOMEM}) {
      Build();
      kernel.Fail(call, error);
      ASSERT_EQ(Run(), S_OK);
      device->Supply(Picture(1));
      EXPECT_EQ(WaitForEvent(), kEventDeviceLost) << error << " of call " << call;
      EXPECT_EQ(graph::LatestStreamStats().damaged, 0U);
      kernel.FailNothing();
      graph.Release();
      UnplugLaptopCamera();
    }
  }
}

TEST_F(DeviceLossTest, PollErrorEndsTheStreamAlthoughNoBufferIsFilled) {
  BuildAndRun();
  kernel.AnswerIoctl(VIDIOC_DQBUF, [](void*) { return EAGAIN; });
  UnplugLaptopCamera();
  EXPECT_EQ(WaitForEvent(), kEventDeviceLost);
}

TEST_F(DeviceLossTest, InvalidBufferIndexEndsTheStream) {
  Build();
  kernel.AnswerIoctl(VIDIOC_DQBUF, [](void* argument) {
    static_cast<v4l2_buffer*>(argument)->index = 4;
    return 0;
  });
  ASSERT_EQ(Run(), S_OK);
  device->Supply(Picture(1));
  EXPECT_EQ(WaitForEvent(), kEventDeviceLost);
  EXPECT_EQ(callback.Count(), 0U);
  EXPECT_EQ(graph::LatestStreamStats().tooShort, 0U) << "no such buffer may be inspected";
}

TEST_F(DeviceLossTest, FailureToReturnABufferEndsTheStream) {
  BuildAndRun();
  kernel.Fail(VIDIOC_QBUF, EIO, Persistence::kTransient);
  Stream({1});
  EXPECT_TRUE(WaitFor([] { return graph::LatestStreamStats().isDisconnected; }));
}

TEST_F(DeviceLossTest, SetFormatReportsTheLossAfterTheStreamHasEnded) {
  BuildAndRun();
  const ComPtr<IBaseFilter> camera = graph.camera;
  UnplugLaptopCamera();
  EXPECT_EQ(WaitForEvent(), kEventDeviceLost);
  graph.Release();
  const ComPtr<IPin> pin = FindPin(*camera.Get(), PINDIR_OUTPUT);
  EXPECT_EQ(ChangeFormat(*pin.Get(), MEDIASUBTYPE_YUY2, 32, 24, 333333), kDeviceGone);
}

TEST_F(DeviceLossTest, ReconnectedDeviceMayHaveAnotherPixelFormat) {
  BuildAndRun();
  UnplugLaptopCamera();
  EXPECT_EQ(WaitForEvent(), kEventDeviceLost);
  VideoDeviceSettings camera;
  camera.formats = {{V4L2_PIX_FMT_UYVY, {Discrete(64, 48, {30})}}};
  device = &AddLaptopCamera(std::move(camera));
  ASSERT_EQ(Run(), S_OK);
  EXPECT_EQ(device->Format().pixelformat, V4L2_PIX_FMT_UYVY);
}

TEST_F(DeviceLossTest, ReconnectedDeviceWorksInTheSameGraphWithoutStop) {
  BuildAndRun();
  Stream({1});
  UnplugLaptopCamera();
  ASSERT_TRUE(WaitFor([] { return graph::LatestStreamStats().isDisconnected; }));
  EXPECT_EQ(Run(), kDeviceGone);
  FakeV4l2Device* const before = device;
  device = &AddLaptopCamera();
  ASSERT_EQ(Run(), S_OK);
  EXPECT_EQ(WaitResult(0), E_ABORT) << "the earlier run's completion does not count";
  EXPECT_FALSE(graph::LatestStreamStats().isDisconnected);
  Stream({2, 3});
  EXPECT_EQ(WaitForEvent(), kEventComplete);
  EXPECT_EQ(graph::LatestStreamStats().delivered, 2U);
  EXPECT_EQ(before->OpenHandles(), 0U);
}

TEST_F(DeviceLossTest, RunRestartsTheStreamAsSoonAsTheLossIsReported) {
  BuildAndRun();
  for (std::uint8_t round = 1; round <= 50; ++round) {
    UnplugLaptopCamera();
    device = &AddLaptopCamera();
    ASSERT_EQ(WaitForEvent(), kEventDeviceLost) << int{round};
    ASSERT_EQ(Run(), S_OK) << int{round};
    ASSERT_TRUE(device->IsStreaming()) << int{round};
  }
  Stream({1});
  EXPECT_EQ(WaitForEvent(), kEventComplete);
}

TEST_F(DeviceLossTest, DamagedFramesAreNotALossUntilTheKernelRemovesTheDevice) {
  BuildAndRun();
  Stream({1, 2});
  device->Disconnect();
  ASSERT_TRUE(WaitFor([] { return graph::LatestStreamStats().damaged >= 4; })) << "at least all buffers";
  EXPECT_FALSE(graph::LatestStreamStats().isDisconnected);
  UnplugLaptopCamera();
  ASSERT_TRUE(WaitFor([] { return graph::LatestStreamStats().isDisconnected; }));
  EXPECT_EQ(Stop(), S_OK);
  const graph::StreamStats stats = graph::LatestStreamStats();
  EXPECT_EQ(stats.delivered, 2U);
  EXPECT_EQ(stats.missed, 0U);
  EXPECT_EQ(callback.Count(), 2U);
}

TEST_F(DeviceLossTest, StopWorksBeforeTheKernelRemovesTheDevice) {
  BuildAndRun();
  device->Disconnect();
  ASSERT_TRUE(WaitFor([] { return graph::LatestStreamStats().damaged >= 4; }));
  EXPECT_EQ(Stop(), S_OK);
  EXPECT_FALSE(device->IsStreaming());
  EXPECT_NE(WaitResult(kInfinite), S_OK);
}

}  // namespace
}  // namespace linux_support
