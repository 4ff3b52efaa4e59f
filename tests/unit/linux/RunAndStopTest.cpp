// IMediaControl::Run and Stop: in turn, repeated, from other threads and from the callback.
#include <chrono>
#include <thread>

#include <unistd.h>

#include "support/ThreadCreationFailure.h"
#include "support/linux/CaptureGraphTest.h"
#include "support/linux/SingleCameraProvider.h"

namespace linux_support {
namespace {

using RunAndStopTest = CaptureGraphTest;

TEST_F(RunAndStopTest, FramesArriveOnlyBetweenRunAndStop) {
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

TEST_F(RunAndStopTest, RedundantCallsSucceed) {
  Build();
  EXPECT_EQ(Stop(), S_OK) << "never run";
  ASSERT_EQ(Run(), S_OK);
  Stream({1});
  EXPECT_EQ(Run(), S_OK) << "running";
  EXPECT_EQ(WaitResult(0), S_OK) << "the graph has not been restarted";
  Stream({2});
  EXPECT_EQ(Stop(), S_OK);
  EXPECT_EQ(Stop(), S_OK) << "stopped";
}

TEST_F(RunAndStopTest, CanBeRepeatedManyTimes) {
  Build();
  for (std::uint8_t round = 1; round <= 20; ++round) {
    ASSERT_EQ(Run(), S_OK) << int{round};
    Stream({round});
    ASSERT_EQ(Stop(), S_OK) << int{round};
  }
  EXPECT_EQ(callback.Count(), 20U);
}

TEST_F(RunAndStopTest, CanBeRepeatedWithoutFrames) {
  Build();
  for (int round = 0; round < 50; ++round) {
    ASSERT_EQ(Run(), S_OK) << round;
    ASSERT_EQ(Stop(), S_OK) << round;
  }
}

TEST_F(RunAndStopTest, StopWaitsForTheCallback) {
  BuildAndRun();
  callback.BlockCallbacks();
  ASSERT_TRUE(device->Deliver(Picture(1)));
  ASSERT_TRUE(callback.WaitForBlockedCallback());
  std::atomic<bool> hasStopped = false;
  std::thread stopper([&] {
    EXPECT_EQ(Stop(), S_OK);
    EXPECT_FALSE(callback.IsInCallback());
    hasStopped = true;
  });
  device->Supply(Picture(2));
  device->Supply(Picture(3));
  // Gives a Stop that does not wait the time to return.
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_FALSE(hasStopped);
  callback.UnblockCallbacks();
  stopper.join();
  const std::size_t count = callback.Count();
  EXPECT_GE(count, 1U);
  EXPECT_FALSE(device->IsStreaming());
  device->Supply(Picture(4));
  EXPECT_EQ(callback.Count(), count);
}

TEST_F(RunAndStopTest, StopCanBeCalledByTwoThreads) {
  BuildAndRun();
  callback.BlockCallbacks();
  ASSERT_TRUE(device->Deliver(Picture(1)));
  ASSERT_TRUE(callback.WaitForBlockedCallback());
  std::thread first([&] { EXPECT_EQ(Stop(), S_OK); });
  std::thread second([&] { EXPECT_EQ(Stop(), S_OK); });
  callback.UnblockCallbacks();
  first.join();
  second.join();
  EXPECT_FALSE(device->IsStreaming());
}

TEST_F(RunAndStopTest, StopFromTheCallbackDoesNotDeadlock) {
  Build();
  std::atomic<HRESULT> result = E_UNEXPECTED;
  callback.onFrame = [&](const CollectedFrame&) { result = Stop(); };
  ASSERT_EQ(Run(), S_OK);
  Stream({1});
  EXPECT_EQ(result, VFW_E_WRONG_STATE);
  Stream({2});
  EXPECT_EQ(Stop(), S_OK);
  EXPECT_FALSE(device->IsStreaming());
}

TEST_F(RunAndStopTest, GraphCanBeReleasedFromTheCallback) {
  Build();
  callback.onFrame = [&](const CollectedFrame&) { graph.Release(); };
  ASSERT_EQ(Run(), S_OK);
  ASSERT_TRUE(device->Deliver(Picture(1)));
  ASSERT_TRUE(callback.WaitForFrames(1));
  EXPECT_TRUE(WaitFor([&] { return com::LiveObjects() == 0 && device->OpenHandles() == 0; }));
}

TEST_F(RunAndStopTest, ReleasingARunningGraphStopsIt) {
  BuildAndRun();
  Stream({1});
  graph.Release();
  EXPECT_FALSE(device->IsStreaming());
  EXPECT_EQ(device->OpenHandles(), 0U);
  EXPECT_EQ(callback.References(), 0U);
}

TEST_F(RunAndStopTest, AnyInterfaceKeepsTheGraphAlive) {
  BuildAndRun();
  const ComPtr<IMediaControl> control = graph.control;
  graph.Release();
  EXPECT_TRUE(device->Deliver(Picture(1)));
  EXPECT_TRUE(callback.WaitForFrames(1));
  EXPECT_EQ(control->Stop(), S_OK);
}

TEST_F(RunAndStopTest, UnconnectedGraphCanBeStopped) {
  ASSERT_EQ(graph.Create(), S_OK);
  EXPECT_EQ(Run(), kNotConnected);
  EXPECT_EQ(Stop(), S_OK);
}

TEST_F(RunAndStopTest, StopEndsWaitsBeforeTheCallbackReturns) {
  GraphSettings settings;
  settings.oneShot = FALSE;
  BuildAndRun(settings);
  callback.BlockCallbacks();
  ASSERT_TRUE(device->Deliver(Picture(1)));
  ASSERT_TRUE(callback.WaitForBlockedCallback());
  std::thread stopper([&] { EXPECT_EQ(Stop(), S_OK); });
  EXPECT_TRUE(WaitFor([&] { return WaitResult(0) == VFW_E_WRONG_STATE; }));
  EXPECT_TRUE(callback.IsInCallback());
  callback.UnblockCallbacks();
  stopper.join();
}

TEST_F(RunAndStopTest, CallbackCanStopAnotherGraph) {
  Build();
  AddPluggedInCamera("1-6", 4);
  FrameCollector otherCallback;
  CaptureGraph other;
  ASSERT_EQ(other.Create(), S_OK);
  ComPtr<IBaseFilter> camera;
  ASSERT_EQ(BindCamera("vid_046d", camera), S_OK);
  ASSERT_EQ(other.AddCamera(camera), S_OK);
  ASSERT_EQ(other.AddGrabber(&otherCallback, {}), S_OK);
  ASSERT_EQ(other.FindPins(), S_OK);
  ASSERT_EQ(other.Connect(), S_OK);
  std::atomic<HRESULT> result = E_UNEXPECTED;
  callback.onFrame = [&](const CollectedFrame&) { result = other.control->Stop(); };
  ASSERT_EQ(Run(), S_OK);
  ASSERT_EQ(other.control->Run(), S_OK);
  Stream({1});
  EXPECT_EQ(result, S_OK);
}

TEST_F(RunAndStopTest, RunWithoutAThreadFails) {
  Build();
  {
    const ThreadCreationFailure refusal;
    EXPECT_EQ(Run(), E_OUTOFMEMORY);
  }
  EXPECT_FALSE(device->IsStreaming());
  EXPECT_EQ(WaitResult(0), VFW_E_WRONG_STATE);
  ASSERT_EQ(Run(), S_OK);
  Stream({1});
}

// A host that has closed its standard input opens files with the descriptor 0.
TEST_F(RunAndStopTest, DescriptorZeroIsValid) {
  device = &AddLaptopCamera();
  for (const bool isFreeBeforeBind : {true, false}) {
    const int saved = dup(STDIN_FILENO);
    ComPtr<IBaseFilter> camera;
    if (isFreeBeforeBind) {
      close(STDIN_FILENO);
    }
    ASSERT_EQ(graph.Create(), S_OK);
    ASSERT_EQ(graph.AddCamera(FirstCamera()), S_OK);
    if (!isFreeBeforeBind) {
      close(STDIN_FILENO);
    }
    ASSERT_EQ(graph.AddGrabber(&callback, {}), S_OK);
    ASSERT_EQ(graph.FindPins(), S_OK);
    EXPECT_EQ(graph.Connect(), S_OK);
    EXPECT_EQ(Run(), S_OK);
    Stream({1});
    EXPECT_EQ(Stop(), S_OK);
    graph.Release();
    EXPECT_EQ(device->OpenHandles(), 0U);
    dup2(saved, STDIN_FILENO);
    close(saved);
  }
}

// --- Run and Stop that overlap ---

// Blocks a camera until the test opens the gate.
struct CameraGate {
  void Pass() {
    reached.Open();
    EXPECT_TRUE(open.Wait());
  }

  Gate reached;
  Gate open;
};

// A camera whose Start blocks at the gate and that delivers no frames.
class SlowCamera : public graph::CaptureSource {
 public:
  explicit SlowCamera(CameraGate& start) : m_start(start) {}

  HRESULT ListFormats(std::vector<graph::VideoFormat>& formats) override {
    formats.push_back({graph::FourCc("YUYV"), 64, 48, 333333});
    return S_OK;
  }
  HRESULT SetFormat(graph::VideoFormat& /*format*/) override { return S_OK; }
  HRESULT Start() override {
    m_start.Pass();
    return S_OK;
  }
  graph::CaptureResult Next(Deadline /*deadline*/, graph::CapturedFrame& /*frame*/) override {
    EXPECT_TRUE(m_interrupted.Wait());
    return graph::CaptureResult::kInterrupted;
  }
  void Recycle(const graph::CapturedFrame& /*frame*/) override {}
  void Stop() override {}
  void Interrupt() override { m_interrupted.Open(); }

 private:
  CameraGate& m_start;
  Gate m_interrupted;
};

// A camera that is disconnected at once and whose Stop blocks at the gate.
class SlowDisconnectedCamera : public SlowCamera {
 public:
  SlowDisconnectedCamera(CameraGate& gate, std::atomic<int>& starts)
      : SlowCamera(gate), m_gate(gate), m_starts(starts) {}

  HRESULT Start() override {
    ++m_starts;
    return S_OK;
  }
  graph::CaptureResult Next(Deadline /*deadline*/, graph::CapturedFrame& /*frame*/) override {
    return graph::CaptureResult::kDisconnected;
  }
  void Stop() override { m_gate.Pass(); }

 private:
  CameraGate& m_gate;
  std::atomic<int>& m_starts;
};

class OverlappingCallsTest : public CaptureGraphTest {
 protected:
  void TearDown() override {
    CaptureGraphTest::TearDown();
    devices::SetDeviceProvider(nullptr);
  }

  CameraGate gate;
};

TEST_F(OverlappingCallsTest, StopDuringRunEndsTheRunAndItsWaits) {
  devices::SetDeviceProvider(
      std::make_shared<SingleCameraProvider>([this] { return std::make_unique<SlowCamera>(gate); }));
  ASSERT_EQ(graph.Build(&callback), S_OK);
  std::thread running([&] { EXPECT_EQ(Run(), S_OK); });
  ASSERT_TRUE(gate.reached.Wait());
  std::thread stopping([&] { EXPECT_EQ(Stop(), S_OK); });
  // Gives Stop the time to reach the point where it waits for Run, which no call can observe.
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  gate.open.Open();
  running.join();
  stopping.join();
  // A graph that still runs would return E_ABORT here and block below.
  ASSERT_EQ(WaitResult(0), VFW_E_WRONG_STATE);
  EXPECT_EQ(WaitResult(kInfinite), VFW_E_WRONG_STATE);
}

TEST_F(OverlappingCallsTest, RunDuringTheStopOfALostCameraRestartsIt) {
  std::atomic<int> starts = 0;
  devices::SetDeviceProvider(std::make_shared<SingleCameraProvider>(
      [&] { return std::make_unique<SlowDisconnectedCamera>(gate, starts); }));
  ASSERT_EQ(graph.Build(&callback), S_OK);
  ASSERT_EQ(Run(), S_OK);
  EXPECT_EQ(WaitForEvent(), kEventDeviceLost);
  ASSERT_TRUE(gate.reached.Wait());
  std::thread running([&] { EXPECT_EQ(Run(), S_OK); });
  // Gives a Run that mistakes the lost stream for a running one the time to return.
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  gate.open.Open();
  running.join();
  EXPECT_EQ(starts, 2);
}

}  // namespace
}  // namespace linux_support
