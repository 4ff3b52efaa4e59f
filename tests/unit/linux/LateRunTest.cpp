// Running and stopping at awkward moments: while the other is under way, after the device has gone, and with
// a camera that shows nothing usable.
#include <chrono>
#include <functional>
#include <thread>

#include "support/linux/CaptureGraphTest.h"
#include "support/linux/Jpegs.h"

namespace {

constexpr LONG kForEver = -1;
constexpr std::chrono::seconds kPatience{30};

// Where a camera waits until a test lets it go on.
class CameraGate {
 public:
  void Open() {
    const std::lock_guard lock(m_mutex);
    m_isOpen = true;
    m_changed.notify_all();
  }
  void Pass() {
    std::unique_lock lock(m_mutex);
    m_isReached = true;
    m_changed.notify_all();
    m_changed.wait_for(lock, kPatience, [this] { return m_isOpen; });
  }
  bool WaitUntilReached() {
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(lock, kPatience, [this] { return m_isReached; });
  }

 private:
  std::mutex m_mutex;
  std::condition_variable m_changed;
  bool m_isReached = false;
  bool m_isOpen = false;
};

// A camera that starts when a test lets it, and delivers nothing.
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
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [this] { return m_isWoken; });
    return graph::CaptureResult::kInterrupted;
  }
  void Recycle(const graph::CapturedFrame& /*frame*/) override {}
  void Stop() override {}
  void Interrupt() override {
    const std::lock_guard lock(m_mutex);
    m_isWoken = true;
    m_changed.notify_all();
  }

 private:
  CameraGate& m_start;
  std::mutex m_mutex;
  std::condition_variable m_changed;
  bool m_isWoken = false;
};

// A camera that is lost at once and stops when a test lets it.
class SlowlyLostCamera : public SlowCamera {
 public:
  SlowlyLostCamera(CameraGate& gate, std::atomic<int>& starts)
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

// Its only device is the camera that is made so.
class SlowTree : public devices::DeviceProvider {
 public:
  explicit SlowTree(std::function<std::unique_ptr<graph::CaptureSource>()> make) : m_make(std::move(make)) {}

  std::vector<devices::CaptureDevice> CaptureDevices() override {
    return {{"@device:slow", "Slow camera", "nowhere", "", m_make}};
  }
  std::vector<devices::UsbDevice> UsbDevices() override { return {}; }

 private:
  std::function<std::unique_ptr<graph::CaptureSource>()> m_make;
};

class OverlappingCalls : public GraphTest {
 protected:
  void TearDown() override {
    GraphTest::TearDown();
    devices::SetDeviceProvider(nullptr);
  }

  CameraGate gate;
};

using UselessCamera = GraphTest;
using ReturnedDevice = GraphTest;
using DisconnectedDevice = GraphTest;

TEST_F(OverlappingCalls, StopDuringARunEndsTheRunAndItsWaits) {
  devices::SetDeviceProvider(
      std::make_shared<SlowTree>([this] { return std::make_unique<SlowCamera>(gate); }));
  ASSERT_EQ(graph.Build(&callback), S_OK);
  std::thread running([&] { EXPECT_EQ(Run(), S_OK); });
  ASSERT_TRUE(gate.WaitUntilReached());
  std::thread stopping([&] { EXPECT_EQ(Stop(), S_OK); });
  // Time for the Stop to come as far as it can; nothing shows how far that is.
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  gate.Open();
  running.join();
  stopping.join();
  // First without waiting, which would show a graph that still runs; then for ever.
  ASSERT_EQ(WaitResult(0), VFW_E_WRONG_STATE);
  EXPECT_EQ(WaitResult(kForEver), VFW_E_WRONG_STATE);
}

TEST_F(OverlappingCalls, RunWhileALostCameraIsBeingStoppedStartsItAfresh) {
  std::atomic<int> starts = 0;
  devices::SetDeviceProvider(
      std::make_shared<SlowTree>([&] { return std::make_unique<SlowlyLostCamera>(gate, starts); }));
  ASSERT_EQ(graph.Build(&callback), S_OK);
  ASSERT_EQ(Run(), S_OK);
  EXPECT_EQ(WaitForEvent(), kEventDeviceLost);
  ASSERT_TRUE(gate.WaitUntilReached());
  std::thread running([&] { EXPECT_EQ(Run(), S_OK); });
  // Time for a Run that takes the lost stream for a running one to show itself.
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  gate.Open();
  running.join();
  EXPECT_EQ(starts, 2);
}

// Waits for the platform's five seconds.
TEST_F(UselessCamera, WhosePicturesCannotBeDecodedEndsTheWaitAsAnAbort) {
  BuildAndRun(MjpgTo(MEDIASUBTYPE_ARGB32));
  FakeFrame undecodable;
  undecodable.bytes = TestJpeg(64, 48);
  undecodable.bytes.resize(undecodable.bytes.size() / 2);
  std::atomic<bool> hasEnded = false;
  std::thread driver([&] {
    while (!hasEnded) {
      device->Deliver(undecodable);
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

TEST_F(ReturnedDevice, ServesTheSameGraphWithoutAStopBetween) {
  BuildAndRun();
  Stream({1});
  UnplugLaptopCamera();
  ASSERT_TRUE(WaitUntil([] { return graph::LatestStreamStats().isDisconnected; }));
  EXPECT_EQ(Run(), kGone);
  FakeV4l2Device* const before = device;
  device = &AddLaptopCamera();
  ASSERT_EQ(Run(), S_OK);
  EXPECT_EQ(WaitResult(0), E_ABORT) << "the completion of the earlier run is not this one's";
  EXPECT_FALSE(graph::LatestStreamStats().isDisconnected);
  Stream({2, 3});
  EXPECT_EQ(WaitForEvent(), kEventComplete);
  EXPECT_EQ(graph::LatestStreamStats().delivered, 2U);
  EXPECT_EQ(before->OpenHandles(), 0U);
}

TEST_F(ReturnedDevice, IsUsedByWhoeverRunsTheGraphAsSoonAsItIsSaidToBeLost) {
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

TEST_F(DisconnectedDevice, IsLostOnceTheKernelHasTakenItAway) {
  BuildAndRun();
  Stream({1, 2});
  device->Disconnect();
  ASSERT_TRUE(WaitUntil([] { return graph::LatestStreamStats().damaged >= 4; })) << "all buffers at least";
  EXPECT_FALSE(graph::LatestStreamStats().isDisconnected);
  UnplugLaptopCamera();
  ASSERT_TRUE(WaitUntil([] { return graph::LatestStreamStats().isDisconnected; }));
  EXPECT_EQ(Stop(), S_OK);
  const graph::StreamStats counters = graph::LatestStreamStats();
  EXPECT_EQ(counters.delivered, 2U);
  EXPECT_EQ(counters.missed, 0U);
  EXPECT_EQ(callback.Count(), 2U);
}

TEST_F(DisconnectedDevice, CanBeStoppedBeforeTheKernelHasTakenItAway) {
  BuildAndRun();
  device->Disconnect();
  ASSERT_TRUE(WaitUntil([] { return graph::LatestStreamStats().damaged >= 4; }));
  EXPECT_EQ(Stop(), S_OK);
  EXPECT_FALSE(device->IsStreaming());
  EXPECT_NE(WaitResult(kForEver), S_OK);
}

}  // namespace
