// The camera fixtures, used through the system's DirectShow.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libyuv.h>

#include <algorithm>
#include <optional>
#include <thread>

#include "simulated/NumberedPicture.h"
#include "support/windows/CameraFixtures.h"
#include "support/windows/TestGraph.h"

using fixtures::Camera;
using fixtures::FrameRecorder;
using fixtures::Pc;
using fixtures::TestGraph;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr REFERENCE_TIME kIntervalAt30Fps = 333'333;

class CameraFixturesTest : public ::testing::Test {
 protected:
  CameraFixturesTest() {
    fixtures::UsePc(Pc::kLaptop);
    fixtures::CameraBehaviour behaviour;
    behaviour.pace = fixtures::Pace::kUnpaced;
    fixtures::SetBehaviour(behaviour);
  }
  ~CameraFixturesTest() override {
    EXPECT_EQ(fixtures::LiveObjects(), 0);
    EXPECT_EQ(fixtures::StreamingThreads(), 0);
    fixtures::UsePc(Pc::kLaptop);
  }

  static std::vector<std::string> DeviceNames() {
    std::vector<std::string> names;
    for (const ComPtr<IMoniker>& moniker : fixtures::CaptureDevices()) {
      names.push_back(fixtures::DisplayName(*moniker.Get()));
    }
    return names;
  }

  fixtures::ComApartment com;
};

// A picture as I420 planes, which the picture reader takes.
struct Planes {
  Planes(std::size_t w, std::size_t h) : width(w), height(h), y(w * h), u(w * h / 4), v(w * h / 4) {}

  std::optional<std::uint32_t> Number() const {
    return simulated::ReadFrameNumber(y.data(), width, static_cast<std::uint32_t>(width),
                                      static_cast<std::uint32_t>(height));
  }
  double ColourError() const {
    return simulated::CornerColourError(y.data(), u.data(), v.data(), static_cast<std::uint32_t>(width),
                                        static_cast<std::uint32_t>(height));
  }

  std::size_t width;
  std::size_t height;
  std::vector<std::uint8_t> y;
  std::vector<std::uint8_t> u;
  std::vector<std::uint8_t> v;
};

Planes FromYuy2(const std::vector<BYTE>& frame, int width, int height) {
  Planes planes(static_cast<std::size_t>(width), static_cast<std::size_t>(height));
  libyuv::YUY2ToI420(frame.data(), 2 * width, planes.y.data(), width, planes.u.data(), width / 2,
                     planes.v.data(), width / 2, width, height);
  return planes;
}

// frame: bottom-up.
Planes FromArgb(const std::vector<BYTE>& frame, int width, int height) {
  Planes planes(static_cast<std::size_t>(width), static_cast<std::size_t>(height));
  libyuv::ARGBToI420(frame.data(), 4 * width, planes.y.data(), width, planes.u.data(), width / 2,
                     planes.v.data(), width / 2, width, -height);
  return planes;
}

TEST_F(CameraFixturesTest, LaptopListsPlugInCameraBeforeBuiltInCamera) {
  EXPECT_THAT(DeviceNames(), ElementsAre(fixtures::kPlugInDisplayName, fixtures::kBuiltInDisplayName));
  const auto devices = fixtures::CaptureDevices();
  ASSERT_EQ(devices.size(), 2U);
  EXPECT_EQ(fixtures::Property(*devices[0].Get(), L"FriendlyName"), fixtures::kPlugInName);
  EXPECT_EQ(fixtures::Property(*devices[1].Get(), L"FriendlyName"), fixtures::kBuiltInName);
}

TEST_F(CameraFixturesTest, ListsOnlyTheCamerasOfThePc) {
  fixtures::UsePc(Pc::kNoCamera);
  EXPECT_THAT(DeviceNames(), IsEmpty());
  fixtures::UsePc(Pc::kOnlyPlugIn);
  EXPECT_THAT(DeviceNames(), ElementsAre(fixtures::kPlugInDisplayName));
  fixtures::SetFilterPresent(Camera::kBuiltIn, true);
  fixtures::SetFilterPresent(Camera::kPlugIn, false);
  EXPECT_THAT(DeviceNames(), ElementsAre(fixtures::kBuiltInDisplayName));
}

TEST_F(CameraFixturesTest, BindFailureAppliesOnlyToTheBuiltInCamera) {
  fixtures::CameraBehaviour behaviour;
  behaviour.bind = HRESULT_FROM_WIN32(ERROR_DEVICE_NOT_CONNECTED);
  fixtures::SetBehaviour(behaviour);
  EXPECT_FALSE(fixtures::CreateFilterNamed(fixtures::kBuiltInDisplayName));
  EXPECT_TRUE(fixtures::CreateFilterNamed(fixtures::kPlugInDisplayName));
}

TEST_F(CameraFixturesTest, DeliversNumberedFramesInOrder) {
  FrameRecorder recorder;
  TestGraph graph(fixtures::kBuiltInDisplayName, recorder, MEDIASUBTYPE_YUY2);
  ASSERT_TRUE(graph.Capture(MEDIASUBTYPE_YUY2, 640, 480));
  EXPECT_EQ(graph.FilterCount(), 2U);
  ASSERT_TRUE(recorder.WaitForFrames(20));
  EXPECT_EQ(graph.Stop(), S_OK);
  const auto frames = recorder.Frames();
  for (std::uint32_t i = 0; i < frames.size(); ++i) {
    ASSERT_EQ(frames[i].size(), 2U * 640 * 480);
    const Planes planes = FromYuy2(frames[i], 640, 480);
    ASSERT_EQ(planes.Number(), i);
    EXPECT_LT(planes.ColourError(), 3);
    EXPECT_NEAR(recorder.Times()[i], i / 30.0, 0.001);
  }
  EXPECT_EQ(fixtures::DeliveredFrames(), recorder.Count());
}

TEST_F(CameraFixturesTest, DeliversEveryFormatUprightInTheRequestedSubtype) {
  for (const fixtures::Format& format : fixtures::LaptopFormats()) {
    const bool isMjpg = format.layout == fixtures::Layout::kMjpg;
    const auto width = static_cast<int>(format.width);
    const auto height = static_cast<int>(format.height);
    SCOPED_TRACE(std::to_string(width) + "x" + std::to_string(height) + (isMjpg ? " MJPG" : " YUY2"));
    FrameRecorder recorder;
    TestGraph graph(fixtures::kBuiltInDisplayName, recorder,
                    isMjpg ? MEDIASUBTYPE_ARGB32 : MEDIASUBTYPE_YUY2);
    ASSERT_TRUE(graph.Capture(isMjpg ? MEDIASUBTYPE_MJPG : MEDIASUBTYPE_YUY2, width, height));
    // Only MJPG needs the decoder.
    EXPECT_EQ(graph.FilterCount(), isMjpg ? 3U : 2U);
    EXPECT_EQ(graph.ConnectedFormat().bmiHeader.biWidth, width);
    EXPECT_EQ(graph.ConnectedFormat().bmiHeader.biHeight, height);
    ASSERT_TRUE(recorder.WaitForFrames(3));
    graph.Stop();
    const auto frames = recorder.Frames();
    for (std::uint32_t i = 0; i < 3; ++i) {
      ASSERT_EQ(frames[i].size(), (isMjpg ? 4U : 2U) * format.width * format.height);
      EXPECT_EQ(graph.ConnectedFormat().bmiHeader.biSizeImage, frames[i].size());
      const Planes planes = isMjpg ? FromArgb(frames[i], width, height) : FromYuy2(frames[i], width, height);
      EXPECT_EQ(planes.Number(), i);
      EXPECT_LT(planes.ColourError(), 4);
    }
  }
}

TEST_F(CameraFixturesTest, DecodesMjpgToYuy2OnRequest) {
  FrameRecorder recorder;
  TestGraph graph(fixtures::kBuiltInDisplayName, recorder, MEDIASUBTYPE_YUY2);
  ASSERT_TRUE(graph.Capture(MEDIASUBTYPE_MJPG, 1280, 720));
  EXPECT_EQ(graph.FilterCount(), 3U);
  ASSERT_TRUE(recorder.WaitForFrames(2));
  graph.Stop();
  const Planes planes = FromYuy2(recorder.Frames()[1], 1280, 720);
  EXPECT_EQ(planes.Number(), 1U);
  EXPECT_LT(planes.ColourError(), 4);
}

TEST_F(CameraFixturesTest, DeliversMjpgUndecodedIfAnySubtypeIsAccepted) {
  FrameRecorder recorder;
  TestGraph graph(fixtures::kBuiltInDisplayName, recorder, GUID_NULL);
  ASSERT_TRUE(graph.Capture(MEDIASUBTYPE_MJPG, 640, 480));
  EXPECT_EQ(graph.FilterCount(), 2U);
  EXPECT_EQ(graph.ConnectedType().subtype, MEDIASUBTYPE_MJPG);
  ASSERT_TRUE(recorder.WaitForFrames(1));
  graph.Stop();
  const auto frame = recorder.Frames()[0];
  ASSERT_GT(frame.size(), 4U);
  EXPECT_EQ(frame[0], 0xFF);
  EXPECT_EQ(frame[1], 0xD8);
}

TEST_F(CameraFixturesTest, RejectsUnsupportedFormats) {
  FrameRecorder recorder;
  TestGraph graph(fixtures::kBuiltInDisplayName, recorder, MEDIASUBTYPE_YUY2);
  EXPECT_EQ(graph.SetFormat(MEDIASUBTYPE_YUY2, 641, 480, kIntervalAt30Fps), VFW_E_INVALIDMEDIATYPE);
  EXPECT_EQ(graph.SetFormat(MEDIASUBTYPE_NV12, 640, 480, kIntervalAt30Fps), VFW_E_INVALIDMEDIATYPE);
}

TEST_F(CameraFixturesTest, SelectsTheNearestFrameRate) {
  FrameRecorder recorder;
  TestGraph graph(fixtures::kBuiltInDisplayName, recorder, MEDIASUBTYPE_YUY2);
  EXPECT_EQ(graph.SetFormat(MEDIASUBTYPE_YUY2, 640, 480, 33), S_OK);
  EXPECT_EQ(graph.Connect(), S_OK);
  EXPECT_EQ(graph.ConnectedFormat().AvgTimePerFrame, kIntervalAt30Fps);
}

TEST_F(CameraFixturesTest, ReturnsTheConfiguredFailures) {
  fixtures::CameraBehaviour behaviour;
  behaviour.setFormat = E_FAIL;
  fixtures::SetBehaviour(behaviour);
  FrameRecorder recorder;
  {
    TestGraph graph(fixtures::kBuiltInDisplayName, recorder, MEDIASUBTYPE_YUY2);
    EXPECT_EQ(graph.SetFormat(MEDIASUBTYPE_YUY2, 640, 480, kIntervalAt30Fps), E_FAIL);
  }
  behaviour = {};
  behaviour.connect = HRESULT_FROM_WIN32(ERROR_BUSY);
  fixtures::SetBehaviour(behaviour);
  {
    TestGraph graph(fixtures::kBuiltInDisplayName, recorder, MEDIASUBTYPE_YUY2);
    EXPECT_TRUE(FAILED(graph.Connect()));
  }
  behaviour = {};
  behaviour.run = HRESULT_FROM_WIN32(ERROR_NO_SYSTEM_RESOURCES);
  fixtures::SetBehaviour(behaviour);
  {
    TestGraph graph(fixtures::kBuiltInDisplayName, recorder, MEDIASUBTYPE_YUY2);
    EXPECT_EQ(graph.Connect(), S_OK);
    EXPECT_EQ(graph.Run(), HRESULT_FROM_WIN32(ERROR_NO_SYSTEM_RESOURCES));
  }
  EXPECT_EQ(recorder.Count(), 0U);
}

TEST_F(CameraFixturesTest, VideoInfo2FormatsDoNotConnectToAVideoInfoGrabber) {
  fixtures::CameraBehaviour behaviour;
  behaviour.formats = {{fixtures::Layout::kYuy2, 640, 480, 30, true}};
  fixtures::SetBehaviour(behaviour);
  FrameRecorder recorder;
  TestGraph graph(fixtures::kBuiltInDisplayName, recorder, MEDIASUBTYPE_YUY2);
  EXPECT_EQ(graph.Connect(), VFW_E_CANNOT_CONNECT);
}

TEST_F(CameraFixturesTest, DisconnectSendsDeviceLostAndEndsTheStream) {
  fixtures::CameraBehaviour behaviour;
  behaviour.pace = fixtures::Pace::kUnpaced;
  behaviour.lostAfter = 5;
  fixtures::SetBehaviour(behaviour);
  // Without and with the decoder.
  for (const GUID& subtype : {MEDIASUBTYPE_YUY2, MEDIASUBTYPE_MJPG}) {
    FrameRecorder recorder;
    TestGraph graph(fixtures::kBuiltInDisplayName, recorder, MEDIASUBTYPE_YUY2);
    graph.Grabber().SetOneShot(FALSE);
    ASSERT_EQ(graph.SetFormat(subtype, 640, 480, kIntervalAt30Fps), S_OK);
    ASSERT_EQ(graph.Connect(), S_OK);
    ASSERT_EQ(graph.Run(), S_OK);
    EXPECT_TRUE(graph.WaitForEvent(EC_DEVICE_LOST));
    // The graph does not complete.
    LONG code = 0;
    EXPECT_EQ(graph.WaitForCompletion(200, code), E_ABORT);
    EXPECT_EQ(graph.Stop(), S_OK);
    EXPECT_EQ(recorder.Count(), 5U);
  }
}

TEST_F(CameraFixturesTest, DeliversOversizedFrames) {
  fixtures::CameraBehaviour behaviour;
  behaviour.extraBytes = 100;
  fixtures::SetBehaviour(behaviour);
  FrameRecorder recorder;
  TestGraph graph(fixtures::kBuiltInDisplayName, recorder, MEDIASUBTYPE_YUY2);
  ASSERT_TRUE(graph.Capture(MEDIASUBTYPE_YUY2, 320, 240));
  EXPECT_EQ(recorder.Frames().at(0).size(), 2U * 320 * 240 + 100);
}

TEST_F(CameraFixturesTest, RealTimePaceIsNotFasterThanTheFrameRate) {
  fixtures::CameraBehaviour behaviour;
  behaviour.pace = fixtures::Pace::kRealTime;
  fixtures::SetBehaviour(behaviour);
  FrameRecorder recorder;
  TestGraph graph(fixtures::kBuiltInDisplayName, recorder, MEDIASUBTYPE_YUY2);
  const auto started = std::chrono::steady_clock::now();
  ASSERT_TRUE(graph.Capture(MEDIASUBTYPE_YUY2, 320, 240));
  ASSERT_TRUE(recorder.WaitForFrames(16));
  // A lower bound holds on slow machines, too.
  EXPECT_GE(std::chrono::steady_clock::now() - started, std::chrono::milliseconds(490));
}

TEST_F(CameraFixturesTest, StopReturnsAfterTheLastCallback) {
  for (int round = 0; round < 50; ++round) {
    FrameRecorder recorder;
    TestGraph graph(fixtures::kBuiltInDisplayName, recorder, MEDIASUBTYPE_YUY2);
    ASSERT_EQ(graph.SetFormat(MEDIASUBTYPE_YUY2, 320, 240, kIntervalAt30Fps), S_OK);
    ASSERT_EQ(graph.Connect(), S_OK);
    ASSERT_EQ(graph.Run(), S_OK);
    std::this_thread::sleep_for(std::chrono::microseconds(100 * round));
    ASSERT_EQ(graph.Stop(), S_OK);
    EXPECT_EQ(fixtures::StreamingThreads(), 0);
    const std::size_t count = recorder.Count();
    EXPECT_EQ(fixtures::DeliveredFrames(), count);
  }
}

TEST_F(CameraFixturesTest, GrabberSettingsCanChangeInsideTheCallback) {
  FrameRecorder recorder;
  TestGraph graph(fixtures::kBuiltInDisplayName, recorder, MEDIASUBTYPE_YUY2);
  recorder.SetCallbackAction([&] {
    graph.Grabber().SetBufferSamples(FALSE);
    graph.Grabber().SetCallback(&recorder, 0);
  });
  ASSERT_TRUE(graph.Capture(MEDIASUBTYPE_YUY2, 320, 240));
  ASSERT_TRUE(recorder.WaitForFrames(3));
  LONG size = 0;
  EXPECT_EQ(graph.Grabber().GetCurrentBuffer(&size, nullptr), E_INVALIDARG);
}

TEST_F(CameraFixturesTest, GrabberReturnsTheLatestFrame) {
  FrameRecorder recorder;
  TestGraph graph(fixtures::kBuiltInDisplayName, recorder, MEDIASUBTYPE_YUY2);
  LONG size = 0;
  EXPECT_EQ(graph.Grabber().GetCurrentBuffer(&size, nullptr), VFW_E_WRONG_STATE);
  ASSERT_TRUE(graph.Capture(MEDIASUBTYPE_YUY2, 320, 240));
  ASSERT_TRUE(recorder.WaitForFrames(4));
  graph.Stop();
  ASSERT_EQ(graph.Grabber().GetCurrentBuffer(&size, nullptr), S_OK);
  std::vector<BYTE> frame(static_cast<std::size_t>(size));
  ASSERT_EQ(graph.Grabber().GetCurrentBuffer(&size, reinterpret_cast<LONG*>(frame.data())), S_OK);
  EXPECT_EQ(FromYuy2(frame, 320, 240).Number(), fixtures::DeliveredFrames() - 1);
}

TEST_F(CameraFixturesTest, EveryRunNumbersFramesFromZero) {
  for (std::uint64_t run = 1; run <= 3; ++run) {
    const std::uint64_t before = fixtures::Runs();
    FrameRecorder recorder;
    TestGraph graph(fixtures::kBuiltInDisplayName, recorder, MEDIASUBTYPE_YUY2);
    ASSERT_TRUE(graph.Capture(MEDIASUBTYPE_YUY2, 320, 240));
    EXPECT_EQ(FromYuy2(recorder.Frames().at(0), 320, 240).Number(), 0U);
    EXPECT_EQ(fixtures::Runs(), before + 1);
  }
}

}  // namespace
