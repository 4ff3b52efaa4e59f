// How a graph uses its camera.
#include <array>
#include <functional>
#include <limits>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "support/linux/CaptureGraphTest.h"
#include "support/linux/SingleCameraProvider.h"

namespace linux_support {
namespace {

using graph::CapturedFrame;
using graph::CaptureResult;
using ::testing::ElementsAre;
using Deadline = graph::CaptureSource::Deadline;

// The behaviour of the camera, and a record of the calls.
struct CameraScript {
  // Answers the first nextCount calls of Next. Later calls wait for Interrupt.
  std::function<CaptureResult(Deadline, CapturedFrame&)> next;
  std::size_t nextCount = 1;

  std::mutex mutex;
  std::vector<Deadline> deadlines;  // of all calls of Next
  int listCount = 0;
  Gate isExhausted;  // Next has been called more often than nextCount
  Gate isInterrupted;
};

class ScriptedCamera : public graph::CaptureSource {
 public:
  explicit ScriptedCamera(CameraScript& script) : m_script(script) {}

  HRESULT ListFormats(std::vector<graph::VideoFormat>& formats) override {
    ++m_script.listCount;
    formats = {{graph::kYuyv, kPictureWidth, kPictureHeight, 333333},
               {graph::kMjpg, kPictureWidth, kPictureHeight, 333333}};
    return S_OK;
  }
  HRESULT SetFormat(graph::VideoFormat& /*format*/) override { return S_OK; }
  HRESULT Start() override { return S_OK; }
  CaptureResult Next(Deadline deadline, CapturedFrame& frame) override {
    frame = {m_bytes.data(), m_bytes.size(), 0, 0};
    {
      const std::lock_guard lock(m_script.mutex);
      m_script.deadlines.push_back(deadline);
    }
    if (m_script.deadlines.size() <= m_script.nextCount) {
      return m_script.next(deadline, frame);
    }
    m_script.isExhausted.Open();
    EXPECT_TRUE(m_script.isInterrupted.Wait());
    return CaptureResult::kInterrupted;
  }
  void Recycle(const CapturedFrame& /*frame*/) override {}
  void Stop() override {}
  void Interrupt() override { m_script.isInterrupted.Open(); }

 private:
  CameraScript& m_script;
  std::array<std::uint8_t, std::size_t{2} * kPictureWidth * kPictureHeight> m_bytes{};
};

class CameraUseTest : public CaptureGraphTest {
 protected:
  void SetUp() override {
    CaptureGraphTest::SetUp();
    devices::SetDeviceProvider(
        std::make_shared<SingleCameraProvider>([this] { return std::make_unique<ScriptedCamera>(script); }));
  }
  void TearDown() override {
    CaptureGraphTest::TearDown();
    devices::SetDeviceProvider(nullptr);
  }
  // Builds and runs a graph until the script's end.
  void Play(const GraphSettings& settings = {}) {
    ASSERT_EQ(graph.Build(&callback, settings), S_OK);
    ASSERT_EQ(Run(), S_OK);
    ASSERT_TRUE(script.isExhausted.Wait());
  }

  CameraScript script;
};

TEST_F(CameraUseTest, FormatsOfAConnectedPinAreListedWithoutTheCamera) {
  ASSERT_EQ(graph.Build(&callback), S_OK);
  const int before = script.listCount;
  std::vector<MediaType> types;
  EXPECT_EQ(ListMediaTypes(*graph.cameraPin.Get(), types), S_OK);
  EXPECT_THAT(types, ::testing::SizeIs(2));
  EXPECT_EQ(script.listCount, before);
}

TEST_F(CameraUseTest, WaitsWithoutADeadlineAfterTheFirstFrame) {
  script.next = [](Deadline, CapturedFrame&) { return CaptureResult::kFrame; };
  Play();
  EXPECT_EQ(WaitForEvent(), kEventComplete);
  EXPECT_NE(script.deadlines.at(0), Deadline::max());
  EXPECT_EQ(script.deadlines.at(1), Deadline::max());
}

TEST_F(CameraUseTest, WaitsWithoutADeadlineAfterATimeout) {
  script.next = [](Deadline, CapturedFrame&) { return CaptureResult::kTimeout; };
  Play();
  EXPECT_EQ(WaitForEvent(), kEventErrorAbort);
  EXPECT_EQ(script.deadlines.at(1), Deadline::max());
}

TEST_F(CameraUseTest, FrameWhoseCallbackThrowsDoesNotCount) {
  script.next = [](Deadline, CapturedFrame&) { return CaptureResult::kFrame; };
  callback.onFrame = [](const CollectedFrame&) { throw std::runtime_error("from the host"); };
  Play();
  EXPECT_EQ(script.deadlines.at(1), script.deadlines.at(0));
  EXPECT_EQ(WaitResult(0), E_ABORT);
}

// Takes five seconds, the platform's timeout for the first frame.
TEST_F(CameraUseTest, AbortsIfAFrameAtTheDeadlineCannotBeDecoded) {
  script.next = [](Deadline deadline, CapturedFrame&) {
    std::this_thread::sleep_until(deadline);
    return CaptureResult::kFrame;
  };
  Play(MjpgTo(MEDIASUBTYPE_ARGB32));
  EXPECT_EQ(WaitResult(0), S_OK);
  EXPECT_EQ(WaitForEvent(), kEventErrorAbort);
}

TEST_F(CameraUseTest, FramesThatExceedALongAreDropped) {
  constexpr std::size_t kMaxSize = std::numeric_limits<LONG>::max();
  std::vector<std::size_t> sizes{kMaxSize + 1, kMaxSize};
  script.nextCount = sizes.size();
  script.next = [&sizes](Deadline, CapturedFrame& frame) {
    frame.size = sizes.front();
    sizes.erase(sizes.begin());
    return CaptureResult::kFrame;
  };
  std::vector<LONG> received;
  callback.onSample = [&received](IMediaSample& sample) { received.push_back(sample.GetActualDataLength()); };
  GraphSettings settings;
  settings.whichMethod = kCallSampleCB;
  Play(settings);
  EXPECT_THAT(received, ElementsAre(std::numeric_limits<LONG>::max()));
  EXPECT_EQ(graph::LatestStreamStats().undecodable, 1U);
}

TEST_F(CameraUseTest, CallbackCanRunAndStopTheGraphDuringAStop) {
  Gate isInCallback;
  script.next = [](Deadline, CapturedFrame&) { return CaptureResult::kFrame; };
  callback.onFrame = [&](const CollectedFrame&) {
    isInCallback.Open();
    // Stop waits for this callback now.
    EXPECT_TRUE(script.isInterrupted.Wait());
    EXPECT_EQ(Run(), S_OK);
    EXPECT_EQ(Stop(), VFW_E_WRONG_STATE);
  };
  ASSERT_EQ(graph.Build(&callback), S_OK);
  ASSERT_EQ(Run(), S_OK);
  ASSERT_TRUE(isInCallback.Wait());
  EXPECT_EQ(Stop(), S_OK);
}

}  // namespace
}  // namespace linux_support
