// The camera fixtures by themselves, under the system's own DirectShow and SetupAPI.
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
using fixtures::Pc;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

constexpr REFERENCE_TIME kThirtiethOfSecond = 333'333;

class FixturesTest : public ::testing::Test {
 protected:
  FixturesTest() {
    fixtures::UsePc(Pc::kLaptop);
    fixtures::CameraBehaviour behaviour;
    behaviour.pace = fixtures::Pace::kFast;
    fixtures::SetBehaviour(behaviour);
  }
  ~FixturesTest() override {
    EXPECT_EQ(fixtures::LiveObjects(), 0);
    EXPECT_EQ(fixtures::StreamingThreads(), 0);
    fixtures::UsePc(Pc::kLaptop);
  }

  static std::vector<std::string> DeviceNames() {
    std::vector<std::string> names;
    for (const ComPtr<IMoniker>& moniker : CaptureDevices()) {
      names.push_back(DisplayName(*moniker.Get()));
    }
    return names;
  }

  ComForTest com;
};

// Planes of a picture, as the reader of numbers and colours wants them.
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

// Bottom-up, as such pictures are.
Planes FromArgb(const std::vector<BYTE>& frame, int width, int height) {
  Planes planes(static_cast<std::size_t>(width), static_cast<std::size_t>(height));
  libyuv::ARGBToI420(frame.data(), 4 * width, planes.y.data(), width, planes.u.data(), width / 2,
                     planes.v.data(), width / 2, width, -height);
  return planes;
}

TEST_F(FixturesTest, ALaptopHasTwoCamerasThePlugInOneFirst) {
  EXPECT_THAT(DeviceNames(), ElementsAre(fixtures::kPlugInDisplayName, fixtures::kBuiltInDisplayName));
  const auto devices = CaptureDevices();
  ASSERT_EQ(devices.size(), 2U);
  EXPECT_EQ(Property(*devices[0].Get(), L"FriendlyName"), fixtures::kPlugInName);
  EXPECT_EQ(Property(*devices[1].Get(), L"FriendlyName"), fixtures::kBuiltInName);
}

TEST_F(FixturesTest, ThePcIsWhatATestMakesIt) {
  fixtures::UsePc(Pc::kNoCamera);
  EXPECT_THAT(DeviceNames(), IsEmpty());
  fixtures::UsePc(Pc::kOnlyPlugIn);
  EXPECT_THAT(DeviceNames(), ElementsAre(fixtures::kPlugInDisplayName));
  fixtures::SetFilterPresent(Camera::kBuiltIn, true);
  fixtures::SetFilterPresent(Camera::kPlugIn, false);
  EXPECT_THAT(DeviceNames(), ElementsAre(fixtures::kBuiltInDisplayName));
}

TEST_F(FixturesTest, ABuiltInCameraThatCannotBeMadeAnswersWhatItShould) {
  fixtures::CameraBehaviour behaviour;
  behaviour.bind = HRESULT_FROM_WIN32(ERROR_DEVICE_NOT_CONNECTED);
  fixtures::SetBehaviour(behaviour);
  EXPECT_FALSE(MakeFilterNamed(fixtures::kBuiltInDisplayName));
  EXPECT_TRUE(MakeFilterNamed(fixtures::kPlugInDisplayName));
}

TEST_F(FixturesTest, FramesComeInOrderAndShowTheirNumber) {
  FrameKeeper keeper;
  TestGraph graph(fixtures::kBuiltInDisplayName, keeper, MEDIASUBTYPE_YUY2);
  ASSERT_TRUE(graph.Capture(MEDIASUBTYPE_YUY2, 640, 480));
  EXPECT_EQ(graph.FilterCount(), 2U);
  ASSERT_TRUE(keeper.WaitForFrames(20));
  EXPECT_EQ(graph.Stop(), S_OK);
  const auto frames = keeper.Frames();
  for (std::uint32_t i = 0; i < frames.size(); ++i) {
    ASSERT_EQ(frames[i].size(), 2U * 640 * 480);
    const Planes planes = FromYuy2(frames[i], 640, 480);
    ASSERT_EQ(planes.Number(), i);
    EXPECT_LT(planes.ColourError(), 3);
    EXPECT_NEAR(keeper.Times()[i], i / 30.0, 0.001);
  }
  EXPECT_EQ(fixtures::DeliveredFrames(), keeper.Count());
}

TEST_F(FixturesTest, EveryFormatArrivesUprightAsWhatIsAskedFor) {
  for (const fixtures::Format& format : fixtures::LaptopFormats()) {
    const bool isMjpg = format.layout == fixtures::Layout::kMjpg;
    const auto width = static_cast<int>(format.width);
    const auto height = static_cast<int>(format.height);
    SCOPED_TRACE(std::to_string(width) + "x" + std::to_string(height) + (isMjpg ? " MJPG" : " YUY2"));
    FrameKeeper keeper;
    TestGraph graph(fixtures::kBuiltInDisplayName, keeper, isMjpg ? MEDIASUBTYPE_ARGB32 : MEDIASUBTYPE_YUY2);
    ASSERT_TRUE(graph.Capture(isMjpg ? MEDIASUBTYPE_MJPG : MEDIASUBTYPE_YUY2, width, height));
    // The decoder is there where it is needed.
    EXPECT_EQ(graph.FilterCount(), isMjpg ? 3U : 2U);
    EXPECT_EQ(graph.ConnectedFormat().bmiHeader.biWidth, width);
    EXPECT_EQ(graph.ConnectedFormat().bmiHeader.biHeight, height);
    ASSERT_TRUE(keeper.WaitForFrames(3));
    graph.Stop();
    const auto frames = keeper.Frames();
    for (std::uint32_t i = 0; i < 3; ++i) {
      ASSERT_EQ(frames[i].size(), (isMjpg ? 4U : 2U) * format.width * format.height);
      EXPECT_EQ(graph.ConnectedFormat().bmiHeader.biSizeImage, frames[i].size());
      const Planes planes = isMjpg ? FromArgb(frames[i], width, height) : FromYuy2(frames[i], width, height);
      EXPECT_EQ(planes.Number(), i);
      EXPECT_LT(planes.ColourError(), 4);
    }
  }
}

TEST_F(FixturesTest, MjpgFramesBecomeYuy2WhereThatIsAskedFor) {
  FrameKeeper keeper;
  TestGraph graph(fixtures::kBuiltInDisplayName, keeper, MEDIASUBTYPE_YUY2);
  ASSERT_TRUE(graph.Capture(MEDIASUBTYPE_MJPG, 1280, 720));
  EXPECT_EQ(graph.FilterCount(), 3U);
  ASSERT_TRUE(keeper.WaitForFrames(2));
  graph.Stop();
  const Planes planes = FromYuy2(keeper.Frames()[1], 1280, 720);
  EXPECT_EQ(planes.Number(), 1U);
  EXPECT_LT(planes.ColourError(), 4);
}

TEST_F(FixturesTest, MjpgFramesAreTakenAsTheyAreWhereAnythingIsAccepted) {
  FrameKeeper keeper;
  TestGraph graph(fixtures::kBuiltInDisplayName, keeper, GUID_NULL);
  ASSERT_TRUE(graph.Capture(MEDIASUBTYPE_MJPG, 640, 480));
  EXPECT_EQ(graph.FilterCount(), 2U);
  EXPECT_EQ(graph.ConnectedType().subtype, MEDIASUBTYPE_MJPG);
  ASSERT_TRUE(keeper.WaitForFrames(1));
  graph.Stop();
  const auto frame = keeper.Frames()[0];
  ASSERT_GT(frame.size(), 4U);
  EXPECT_EQ(frame[0], 0xFF);
  EXPECT_EQ(frame[1], 0xD8);
}

TEST_F(FixturesTest, AFormatThatTheCameraDoesNotHaveIsRefusedAndARateIsRounded) {
  FrameKeeper keeper;
  TestGraph graph(fixtures::kBuiltInDisplayName, keeper, MEDIASUBTYPE_YUY2);
  EXPECT_EQ(graph.SetFormat(MEDIASUBTYPE_YUY2, 641, 480, kThirtiethOfSecond), VFW_E_INVALIDMEDIATYPE);
  EXPECT_EQ(graph.SetFormat(MEDIASUBTYPE_NV12, 640, 480, kThirtiethOfSecond), VFW_E_INVALIDMEDIATYPE);
  EXPECT_EQ(graph.SetFormat(MEDIASUBTYPE_YUY2, 640, 480, 33), S_OK);
  EXPECT_EQ(graph.Connect(), S_OK);
  EXPECT_EQ(graph.ConnectedFormat().AvgTimePerFrame, kThirtiethOfSecond);
}

TEST_F(FixturesTest, FailuresAreAnsweredWhereTheyAreAskedFor) {
  fixtures::CameraBehaviour behaviour;
  behaviour.setFormat = E_FAIL;
  fixtures::SetBehaviour(behaviour);
  FrameKeeper keeper;
  {
    TestGraph graph(fixtures::kBuiltInDisplayName, keeper, MEDIASUBTYPE_YUY2);
    EXPECT_EQ(graph.SetFormat(MEDIASUBTYPE_YUY2, 640, 480, kThirtiethOfSecond), E_FAIL);
  }
  behaviour = {};
  behaviour.connect = HRESULT_FROM_WIN32(ERROR_BUSY);
  fixtures::SetBehaviour(behaviour);
  {
    TestGraph graph(fixtures::kBuiltInDisplayName, keeper, MEDIASUBTYPE_YUY2);
    EXPECT_TRUE(FAILED(graph.Connect()));
  }
  behaviour = {};
  behaviour.run = HRESULT_FROM_WIN32(ERROR_NO_SYSTEM_RESOURCES);
  fixtures::SetBehaviour(behaviour);
  {
    TestGraph graph(fixtures::kBuiltInDisplayName, keeper, MEDIASUBTYPE_YUY2);
    EXPECT_EQ(graph.Connect(), S_OK);
    EXPECT_EQ(graph.Run(), HRESULT_FROM_WIN32(ERROR_NO_SYSTEM_RESOURCES));
  }
  EXPECT_EQ(keeper.Count(), 0U);
}

TEST_F(FixturesTest, ACameraWhoseTypesAreAllOfTheOtherKindDoesNotConnectToOneThatAsksForThis) {
  fixtures::CameraBehaviour behaviour;
  behaviour.formats = {{fixtures::Layout::kYuy2, 640, 480, 30, true}};
  fixtures::SetBehaviour(behaviour);
  FrameKeeper keeper;
  TestGraph graph(fixtures::kBuiltInDisplayName, keeper, MEDIASUBTYPE_YUY2);
  EXPECT_EQ(graph.Connect(), VFW_E_CANNOT_CONNECT);
}

TEST_F(FixturesTest, ACameraThatIsLostSaysSoAndDeliversNoMore) {
  fixtures::CameraBehaviour behaviour;
  behaviour.pace = fixtures::Pace::kFast;
  behaviour.lostAfter = 5;
  fixtures::SetBehaviour(behaviour);
  // By itself, and through the decoder.
  for (const GUID& subtype : {MEDIASUBTYPE_YUY2, MEDIASUBTYPE_MJPG}) {
    FrameKeeper keeper;
    TestGraph graph(fixtures::kBuiltInDisplayName, keeper, MEDIASUBTYPE_YUY2);
    graph.Grabber().SetOneShot(FALSE);
    ASSERT_EQ(graph.SetFormat(subtype, 640, 480, kThirtiethOfSecond), S_OK);
    ASSERT_EQ(graph.Connect(), S_OK);
    ASSERT_EQ(graph.Run(), S_OK);
    EXPECT_TRUE(graph.WaitForEvent(EC_DEVICE_LOST));
    // Nothing completes the graph.
    LONG code = 0;
    EXPECT_EQ(graph.WaitForCompletion(200, code), E_ABORT);
    EXPECT_EQ(graph.Stop(), S_OK);
    EXPECT_EQ(keeper.Count(), 5U);
  }
}

TEST_F(FixturesTest, FramesCanBeLongerThanTheirFormatSays) {
  fixtures::CameraBehaviour behaviour;
  behaviour.extraBytes = 100;
  fixtures::SetBehaviour(behaviour);
  FrameKeeper keeper;
  TestGraph graph(fixtures::kBuiltInDisplayName, keeper, MEDIASUBTYPE_YUY2);
  ASSERT_TRUE(graph.Capture(MEDIASUBTYPE_YUY2, 320, 240));
  EXPECT_EQ(keeper.Frames().at(0).size(), 2U * 320 * 240 + 100);
}

TEST_F(FixturesTest, InRealTimeFramesComeAtTheirRate) {
  fixtures::CameraBehaviour behaviour;
  behaviour.pace = fixtures::Pace::kReal;
  fixtures::SetBehaviour(behaviour);
  FrameKeeper keeper;
  TestGraph graph(fixtures::kBuiltInDisplayName, keeper, MEDIASUBTYPE_YUY2);
  const auto started = std::chrono::steady_clock::now();
  ASSERT_TRUE(graph.Capture(MEDIASUBTYPE_YUY2, 320, 240));
  ASSERT_TRUE(keeper.WaitForFrames(16));
  // Never faster, however slow the machine is.
  EXPECT_GE(std::chrono::steady_clock::now() - started, std::chrono::milliseconds(490));
}

TEST_F(FixturesTest, StoppingReturnsAfterTheLastCallbackAlsoRightAfterTheStart) {
  for (int round = 0; round < 50; ++round) {
    FrameKeeper keeper;
    TestGraph graph(fixtures::kBuiltInDisplayName, keeper, MEDIASUBTYPE_YUY2);
    ASSERT_EQ(graph.SetFormat(MEDIASUBTYPE_YUY2, 320, 240, kThirtiethOfSecond), S_OK);
    ASSERT_EQ(graph.Connect(), S_OK);
    ASSERT_EQ(graph.Run(), S_OK);
    std::this_thread::sleep_for(std::chrono::microseconds(100 * round));
    ASSERT_EQ(graph.Stop(), S_OK);
    EXPECT_EQ(fixtures::StreamingThreads(), 0);
    const std::size_t count = keeper.Count();
    EXPECT_EQ(fixtures::DeliveredFrames(), count);
  }
}

TEST_F(FixturesTest, ASettingChangesInsideTheCallback) {
  FrameKeeper keeper;
  TestGraph graph(fixtures::kBuiltInDisplayName, keeper, MEDIASUBTYPE_YUY2);
  keeper.InCallback([&] {
    graph.Grabber().SetBufferSamples(FALSE);
    graph.Grabber().SetCallback(&keeper, 0);
  });
  ASSERT_TRUE(graph.Capture(MEDIASUBTYPE_YUY2, 320, 240));
  ASSERT_TRUE(keeper.WaitForFrames(3));
  LONG size = 0;
  EXPECT_EQ(graph.Grabber().GetCurrentBuffer(&size, nullptr), E_INVALIDARG);
}

TEST_F(FixturesTest, TheLatestFrameCanBeHad) {
  FrameKeeper keeper;
  TestGraph graph(fixtures::kBuiltInDisplayName, keeper, MEDIASUBTYPE_YUY2);
  LONG size = 0;
  EXPECT_EQ(graph.Grabber().GetCurrentBuffer(&size, nullptr), VFW_E_WRONG_STATE);
  ASSERT_TRUE(graph.Capture(MEDIASUBTYPE_YUY2, 320, 240));
  ASSERT_TRUE(keeper.WaitForFrames(4));
  graph.Stop();
  ASSERT_EQ(graph.Grabber().GetCurrentBuffer(&size, nullptr), S_OK);
  std::vector<BYTE> frame(static_cast<std::size_t>(size));
  ASSERT_EQ(graph.Grabber().GetCurrentBuffer(&size, reinterpret_cast<LONG*>(frame.data())), S_OK);
  EXPECT_EQ(FromYuy2(frame, 320, 240).Number(), fixtures::DeliveredFrames() - 1);
}

TEST_F(FixturesTest, FramesAreNumberedFromZeroInEveryRun) {
  for (std::uint64_t run = 1; run <= 3; ++run) {
    const std::uint64_t before = fixtures::Runs();
    FrameKeeper keeper;
    TestGraph graph(fixtures::kBuiltInDisplayName, keeper, MEDIASUBTYPE_YUY2);
    ASSERT_TRUE(graph.Capture(MEDIASUBTYPE_YUY2, 320, 240));
    EXPECT_EQ(FromYuy2(keeper.Frames().at(0), 320, 240).Number(), 0U);
    EXPECT_EQ(fixtures::Runs(), before + 1);
  }
}

}  // namespace
