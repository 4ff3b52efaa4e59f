// A graph that calls back on several threads, while it is being stopped, and afterwards.
#include <array>
#include <atomic>
#include <cstring>
#include <limits>
#include <thread>

#include "support/CameraHandlerTest.h"

namespace {

using support::CameraHandlerTest;
using support::Frame;
using support::Gate;
using support::kFrameSize;
using support::kSmallFrameSize;
using support::Packet;
using support::WaitFor;

constexpr std::size_t kCallers = 4;

struct Origin {
  std::uint32_t caller = 0;
  std::uint32_t number = 0;
};

std::vector<std::uint8_t> FrameFrom(std::size_t caller, std::uint32_t number) {
  std::vector<std::uint8_t> frame(kSmallFrameSize);
  const Origin origin{static_cast<std::uint32_t>(caller), number};
  std::memcpy(frame.data(), &origin, sizeof(origin));
  return frame;
}

Origin OriginOf(const Packet& packet) {
  Origin origin;
  std::memcpy(&origin, packet.bytes.data(), sizeof(origin));
  return origin;
}

// Runs a function on several threads.
class Callers {
 public:
  explicit Callers(const std::function<void(std::size_t caller)>& work) {
    for (std::size_t caller = 0; caller < m_threads.size(); ++caller) {
      m_threads.at(caller) = std::thread(work, caller);
    }
  }
  Callers(const Callers&) = delete;
  Callers& operator=(const Callers&) = delete;
  ~Callers() { Join(); }

  void Join() {
    for (std::thread& thread : m_threads) {
      if (thread.joinable()) {
        thread.join();
      }
    }
  }

 private:
  std::array<std::thread, kCallers> m_threads;
};

class ConcurrentCallbacks : public CameraHandlerTest {
 protected:
  void SetUp() override {
    CameraHandlerTest::SetUp();
    QuerySmallCamera();
  }
  // Expects that the frames of each thread arrive in order and without gaps. Only the last frames of a
  // session may be lost.
  void ExpectOrder() {
    m_next = {};
    host.InData([this](const Packet& packet) {
      const Origin origin = OriginOf(packet);
      m_outOfOrder += m_next.at(origin.caller)++ == origin.number ? 0 : 1;
      m_late += m_closed ? 1 : 0;
    });
  }
  int OpenTiny() {
    const int result = OpenSmall();
    m_closed = result != NUVEQ_CAMERA_OK;
    return result;
  }
  int CloseTiny() {
    const int result = Close();
    m_closed = true;
    return result;
  }

  std::array<std::uint32_t, kCallers> m_next{};
  std::atomic<int> m_outOfOrder = 0;
  std::atomic<int> m_late = 0;
  std::atomic<bool> m_closed = true;
};

TEST_F(ConcurrentCallbacks, FramesOfEachThreadArriveOnceAndInOrder) {
  constexpr std::uint32_t kFrames = 2000;
  ExpectOrder();
  ASSERT_EQ(OpenTiny(), 0);
  Callers callers([&](std::size_t caller) {
    for (std::uint32_t number = 0; number < kFrames; ++number) {
      EXPECT_TRUE(platform.DeliverFrame(FrameFrom(caller, number)));
    }
  });
  callers.Join();
  EXPECT_TRUE(host.WaitForPackets(kCallers * kFrames));
  EXPECT_EQ(CloseTiny(), 1);
  EXPECT_EQ(host.PacketCount(), kCallers * kFrames);
  EXPECT_EQ(m_outOfOrder, 0);
  EXPECT_THAT(m_next, ::testing::Each(kFrames));
}

TEST_F(ConcurrentCallbacks, NoPacketArrivesAfterClose) {
  for (std::uint64_t round = 0; round < 100; ++round) {
    ExpectOrder();
    const std::uint64_t before = host.PacketCount();
    std::atomic<std::uint64_t> delivered = 0;
    ASSERT_EQ(OpenTiny(), 0);
    Callers callers([&](std::size_t caller) {
      for (std::uint32_t number = 0; platform.DeliverFrame(FrameFrom(caller, number)); ++number) {
        ++delivered;
      }
    });
    ASSERT_TRUE(host.WaitForPackets(before + 1 + round % 16));
    ASSERT_EQ(CloseTiny(), 1);
    callers.Join();
    const std::uint64_t arrived = host.PacketCount() - before;
    // The remaining frames were in the pool.
    EXPECT_LE(arrived, delivered);
    EXPECT_LE(delivered - arrived, 5U);
  }
  EXPECT_EQ(m_outOfOrder, 0);
  EXPECT_EQ(m_late, 0);
}

TEST_F(ConcurrentCallbacks, CallbackAfterCloseReturnsAndUsesNoBuffer) {
  ExpectOrder();
  ASSERT_EQ(OpenTiny(), 0);
  ISampleGrabberCB* const callback = platform.GrabberCallback();
  ASSERT_NE(callback, nullptr);
  ASSERT_EQ(CloseTiny(), 1);
  std::vector<std::uint8_t> frame = FrameFrom(0, 0);
  // More frames than buffers in the pool.
  for (int i = 0; i < 10; ++i) {
    for (const LONG length : {static_cast<LONG>(kSmallFrameSize), LONG{1}, LONG{0}, LONG{-1},
                              static_cast<LONG>(kSmallFrameSize) + 1, std::numeric_limits<LONG>::max()}) {
      EXPECT_EQ(callback->BufferCB(0.0, frame.data(), length), S_OK);
    }
    EXPECT_EQ(callback->SampleCB(0.0, nullptr), S_OK);
  }
  EXPECT_EQ(host.PacketCount(), 0U);

  Gate mayEncode;
  platform.Before("VideoEncoder::Encode", [&] { EXPECT_TRUE(mayEncode.Wait()); });
  ASSERT_EQ(OpenTiny(), 0);
  for (std::uint32_t number = 0; number < 5; ++number) {
    EXPECT_TRUE(platform.DeliverFrame(FrameFrom(0, number)));
  }
  EXPECT_EQ(host.PacketCount(), 0U);
  mayEncode.Open();
  EXPECT_TRUE(host.WaitForPackets(5));
  EXPECT_EQ(CloseTiny(), 1);
  EXPECT_EQ(m_outOfOrder, 0);
}

TEST_F(ConcurrentCallbacks, FrameDuringPoolTeardownIsRejected) {
  ASSERT_EQ(OpenTiny(), 0);
  ISampleGrabberCB* const callback = platform.GrabberCallback();
  std::vector<std::uint8_t> frame = FrameFrom(0, 0);
  // During the teardown, with the pool's locks held: a frame that requests a buffer would deadlock.
  unsigned calls = 0;
  platform.Before("VideoFrame::ReleaseBuffer", [&] {
    EXPECT_EQ(callback->BufferCB(0.0, frame.data(), static_cast<LONG>(frame.size())), S_OK);
    ++calls;
  });
  EXPECT_EQ(CloseTiny(), 1);
  EXPECT_EQ(calls, 5U);
  EXPECT_EQ(host.PacketCount(), 0U);
}

// The threads call before the graph runs, while it stops and after it has been released. Large frames make a
// teardown during a copy likely.
TEST_F(ConcurrentCallbacks, CallbacksAfterStopUseNoFreedMemory) {
  platform.SetPc(scripted::LaptopPc());
  QueryAndRelease();
  platform.SetRecording(false);
  std::vector<std::uint8_t> frame = Frame(kFrameSize, 1);
  ExpectFormatLeft();
  ASSERT_EQ(Open(), 0);
  ISampleGrabberCB* const callback = platform.GrabberCallback();
  ASSERT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  host.InData([&](const Packet&) { m_late += m_closed ? 1 : 0; });
  std::atomic<bool> done = false;
  std::atomic<std::uint64_t> calls = 0;
  Callers callers([&](std::size_t) {
    while (!done) {
      EXPECT_EQ(callback->BufferCB(0.0, frame.data(), static_cast<LONG>(frame.size())), S_OK);
      ++calls;
      std::this_thread::yield();
    }
  });
  for (std::uint64_t round = 0; round < 25 && !HasFailure(); ++round) {
    ExpectFormatLeft();
    const std::uint64_t before = host.PacketCount();
    m_closed = false;
    EXPECT_EQ(Open(), 0);
    EXPECT_TRUE(host.WaitForPackets(before + round % 8));
    EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
    m_closed = true;
    // Calls also return while the camera is closed.
    const std::uint64_t sofar = calls;
    EXPECT_TRUE(WaitFor([&] { return calls >= sofar + 2 * kCallers; }));
  }
  done = true;
  callers.Join();
  EXPECT_EQ(m_late, 0);
}

}  // namespace
