// The open request: order of steps, encoder parameters and reports. The fault injection tests the failure of
// each call, InvalidInputFromHostTest.cpp the arguments.
#include "support/CameraHandlerTest.h"

namespace {

using support::CameraHandlerTest;
using support::Frame;
using support::kFrameSize;
using support::LoadedLibrary;

using OpenSequence = CameraHandlerTest;
using scripted::Fails;
using scripted::SFalse;
using scripted::SucceedsWithNull;
using ::testing::Contains;
using ::testing::IsEmpty;

TEST_F(OpenSequence, NullRequestIsInvalid) {
  QueryAndRelease();
  EXPECT_EQ(handler.OpenCameraDevice(nullptr), NUVEQ_CAMERA_INVALID_ARGUMENT);
  EXPECT_THAT(platform.Calls(), IsEmpty());
}

TEST_F(OpenSequence, CoInitializeFailureIsIgnored) {
  for (const scripted::Answer answer : {SFalse(), Fails()}) {
    platform.Answers("CoInitialize", answer);
    Unload();
    LoadedLibrary fresh(NUVEQ_LIBRARY_FILE);
    ASSERT_EQ(fresh.GetCameraHandler(&handler), 0);
    QueryAndOpen();
    EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  }
}

TEST_F(OpenSequence, RefusedSecondOpenReportsOpenAndReplacesTheId) {
  QueryAndOpen();
  DeliverAndReceive(1);
  platform.ClearJournal();
  EXPECT_EQ(Open("7"), NUVEQ_CAMERA_ALREADY_OPEN);
  EXPECT_THAT(platform.Calls(), IsEmpty());
  EXPECT_THAT(platform.Journal(), Contains("status callback \"7\" 1 4"));
  DeliverAndReceive(2);
  EXPECT_EQ(host.Packets().at(0).id, "0");
  EXPECT_EQ(host.Packets().at(1).id, "7");
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
}

TEST_F(OpenSequence, InvalidSecondOpenKeepsTheId) {
  QueryAndOpen();
  EXPECT_EQ(Open("7x"), NUVEQ_CAMERA_INVALID_ARGUMENT);
  DeliverAndReceive(1);
  EXPECT_EQ(host.Packets().at(0).id, "0");
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
}

TEST_F(OpenSequence, EncoderGetsParametersOfUncompressedSize) {
  QueryAndOpen();
  const VideoEncoder::EncodeParam param = platform.LastEncodeParam();
  EXPECT_EQ(param.width, 640U);
  EXPECT_EQ(param.height, 480U);
  EXPECT_EQ(param.frameRate, 30U);
  EXPECT_EQ(param.colorSpace, ColorSpace::kYuy2);
  EXPECT_EQ(param.colorCode, 1);
  EXPECT_EQ(param.outWidth, 640U);
  EXPECT_EQ(param.outHeight, 480U);
  EXPECT_EQ(param.keyFrameInterval, 150);
  EXPECT_EQ(param.unnamed34, 1);
  EXPECT_EQ(param.unnamed36, 1);
  EXPECT_EQ(param.bitRate, 1536);
  EXPECT_EQ(param.unnamed40, 0U);
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
}

TEST_F(OpenSequence, EncoderGetsParametersOfMjpgSize) {
  QueryAndRelease();
  ExpectFormatLeft();
  EXPECT_EQ(Open("0", 1280, 720, 30), 0);
  EXPECT_EQ(platform.LastEncodeParam().colorSpace, ColorSpace::kArgb32);
  EXPECT_EQ(platform.LastEncodeParam().colorCode, 2);
  EXPECT_THAT(platform.Calls(), Contains("VideoFrame::AllocBuffer(1280, 720, 4)").Times(5));
  EXPECT_THAT(platform.Calls(),
              Contains("IAMStreamConfig::SetFormat(built-in.capture, MEDIASUBTYPE_MJPG, 1280x720, "
                       "333333)"));
  EXPECT_THAT(platform.Calls(), Contains("ISampleGrabber::SetMediaType(MEDIATYPE_Video, MEDIASUBTYPE_ARGB32, "
                                         "FORMAT_VideoInfo, cbFormat 0)"));
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
}

struct Rate {
  std::uint32_t fps;
  const char* interval;  // of the camera's format, in units of 100 ns
  int keyFrameInterval;  // five seconds modulo 16 bits
};

TEST_F(OpenSequence, RateDeterminesIntervalAndKeyFrameInterval) {
  QueryAndRelease();
  for (const Rate& rate :
       {Rate{0, "33", 0}, Rate{30, "333333", 150}, Rate{13107, "762", 65535}, Rate{13108, "762", 4},
        Rate{10'000'001, "0", 61573}, Rate{0x80000000U, "0", 0}, Rate{0xFFFFFFFFU, "0", 65531}}) {
    platform.ClearJournal();
    ASSERT_EQ(Open("0", 640, 480, rate.fps), NUVEQ_CAMERA_OK);
    EXPECT_THAT(platform.Calls(),
                Contains("IAMStreamConfig::SetFormat(built-in.capture, MEDIASUBTYPE_YUY2, 640x480, " +
                         std::string(rate.interval) + ")"));
    EXPECT_EQ(platform.LastEncodeParam().frameRate, rate.fps);
    EXPECT_EQ(platform.LastEncodeParam().keyFrameInterval, rate.keyFrameInterval);
    DeliverAndReceive(1);
    EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
    platform.DisposeOf("current media type");
  }
}

TEST_F(OpenSequence, NullEncoderIsReleased) {
  QueryAndRelease();
  platform.AnswersNth("VideoEncoder::CreateDefaultEncoder", 1, SucceedsWithNull());
  EXPECT_EQ(Open(), NUVEQ_CAMERA_ENCODER_FAILED);
  EXPECT_EQ(platform.Calls().back(), "VideoEncoder::ReleaseEncoder(null)");
}

TEST_F(OpenSequence, FailedWaitForFirstFrameIsIgnored) {
  QueryAndRelease();
  ExpectFormatLeft();
  platform.AnswersNth("IMediaEvent::WaitForCompletion", 1, Fails());
  EXPECT_EQ(Open(), 0);
  DeliverAndReceive(1);
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
}

TEST_F(OpenSequence, NoFrameIsEncodedBeforeTheGraphHasCompleted) {
  QueryAndRelease();
  ExpectFormatLeft();
  platform.Before("IMediaEvent::WaitForCompletion", [&] {
    // The pool is full, and no encoder thread runs.
    if (platform.CallCount("IMediaEvent::WaitForCompletion") == 1) {
      for (std::uint8_t value = 1; value <= 5; ++value) {
        EXPECT_TRUE(platform.DeliverFrame(Frame(kFrameSize, value)));
      }
      EXPECT_EQ(platform.CallCount("VideoEncoder::Encode"), 0U);
    }
  });
  EXPECT_EQ(Open(), 0);
  EXPECT_TRUE(host.WaitForPackets(5));
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
}

TEST_F(OpenSequence, StatusCallbackErrorsAreIgnored) {
  QueryAndRelease();
  ExpectFormatLeft();
  host.SetStatusResult(-9);
  EXPECT_EQ(Open(), NUVEQ_CAMERA_OK);
  EXPECT_EQ(Open(), NUVEQ_CAMERA_ALREADY_OPEN);
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
}

}  // namespace
