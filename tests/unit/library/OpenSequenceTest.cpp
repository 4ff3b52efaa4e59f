// The open request: argument checks, order of steps, encoder parameters and reports.
#include "support/CameraHandlerTest.h"

namespace {

using support::CameraHandlerTest;
using support::ErrorLine;
using support::Frame;
using support::kFrameSize;
using support::LoadedLibrary;
using support::WarnLine;

using OpenSequence = CameraHandlerTest;
using scripted::Fails;
using scripted::SFalse;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

TEST_F(OpenSequence, NullRequestIsInvalid) {
  QueryAndRelease();
  EXPECT_EQ(handler.OpenCameraDevice(nullptr), -2);
  EXPECT_THAT(
      LogLines(),
      ElementsAre(WarnLine(708, "[CameraOperator]Start open camera(CameraOperator::OpenCameraInner)"),
                  ErrorLine(710, "[CameraOperator]invalid parameter(CameraOperator::OpenCameraInner)")));
  EXPECT_THAT(platform.Calls(), IsEmpty());
}

TEST_F(OpenSequence, IdWithALetterIsInvalid) {
  QueryAndRelease();
  EXPECT_EQ(Open("12a"), NUVEQ_CAMERA_INVALID_ARGUMENT);
  EXPECT_THAT(
      LogLines(),
      ElementsAre(WarnLine(708, "[CameraOperator]Start open camera(CameraOperator::OpenCameraInner)"),
                  ErrorLine(716, "[CameraOperator]invalid camera id(CameraOperator::OpenCameraInner)")));
  EXPECT_THAT(platform.Calls(), IsEmpty());
}

TEST_F(OpenSequence, NullIdIsInvalid) {
  const NUVEQCameraParam param{nullptr, 1, 640, 480, 30};
  EXPECT_EQ(handler.OpenCameraDevice(&param), -2);
}

TEST_F(OpenSequence, IdIsNotReadBeyondTheFirstNonDigit) {
  const NUVEQCameraParam param{"0", 0xFFFFFFFF, 640, 480, 30};
  EXPECT_EQ(handler.OpenCameraDevice(&param), -2);
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

TEST_F(OpenSequence, EmptyIdSelectsCameraZero) {
  QueryAndRelease();
  ExpectFormatLeft();
  EXPECT_EQ(Open(""), 0);
  EXPECT_THAT(platform.Calls(), Contains("IMoniker::BindToObject(built-in, IID_IBaseFilter)"));
  DeliverAndReceive(1);
  EXPECT_EQ(host.Packets().at(0).id, "");
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
}

TEST_F(OpenSequence, LeadingZerosAreAccepted) {
  QueryAndRelease();
  ExpectFormatLeft();
  EXPECT_EQ(Open("000"), 0);
  DeliverAndReceive(1);
  EXPECT_EQ(host.Packets().at(0).id, "000");
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
}

TEST_F(OpenSequence, UnknownCameraFailsWithoutBindMessage) {
  QueryAndRelease();
  EXPECT_EQ(Open("1"), NUVEQ_CAMERA_GRAPH_FAILED);
  EXPECT_THAT(
      LogLines(),
      ElementsAre(WarnLine(708, "[CameraOperator]Start open camera(CameraOperator::OpenCameraInner)"),
                  ErrorLine("[CameraOperator]start OpenCamera, width:640, height:480, fps:30"
                            "(CameraOperator::OpenCamera)"),
                  ErrorLine("[CameraOperator]BindDeviceFilter fail.(CameraOperator::AddDeviceFilter)"),
                  ErrorLine("[CameraOperator]AddDeviceFilter fail.(CameraOperator::OpenCamera)"),
                  ErrorLine(754, "[CameraOperator]fail to open camera(CameraOperator::OpenCameraInner)")));
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
}

TEST_F(OpenSequence, IdOfTwentyDigitsIsUnknownCamera) {
  QueryAndRelease();
  platform.AnswersNth("CoCreateInstance", 1, Fails());
  EXPECT_EQ(Open("99999999999999999999"), NUVEQ_CAMERA_GRAPH_FAILED);
  EXPECT_THAT(LogLines(), Contains(ErrorLine("[CameraOperator]InitCameraBasicInfo fail. cameraId:2147483647"
                                             "(CameraOperator::OpenCamera)")));
}

TEST_F(OpenSequence, OnlyStartAndSuccessAreLoggedAsWarnings) {
  QueryAndOpen();
  EXPECT_THAT(
      LogLines(),
      ElementsAre(WarnLine(708, "[CameraOperator]Start open camera(CameraOperator::OpenCameraInner)"),
                  ErrorLine("[CameraOperator]start OpenCamera, width:640, height:480, fps:30"
                            "(CameraOperator::OpenCamera)"),
                  ErrorLine("[CameraOperator]Set camera parameter, (640,480,30,844715353)"
                            "(CameraOperator::SetCameraFormat)"),
                  ErrorLine("[CameraOperator]OpenCamera success.(CameraOperator::OpenCamera)"),
                  WarnLine(775, "[CameraOperator]open camera success(CameraOperator::OpenCameraInner)")));
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
}

TEST_F(OpenSequence, RefusedSecondOpenReportsOpenAndReplacesTheId) {
  QueryAndOpen();
  DeliverAndReceive(1);
  platform.ClearJournal();
  EXPECT_EQ(Open("7"), NUVEQ_CAMERA_ALREADY_OPEN);
  EXPECT_THAT(
      LogLines(),
      ElementsAre(
          WarnLine(708, "[CameraOperator]Start open camera(CameraOperator::OpenCameraInner)"),
          ErrorLine(721, "[CameraOperator]Camera is already open.(CameraOperator::OpenCameraInner)")));
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

TEST_F(OpenSequence, KeyFrameIntervalIsFiveSecondsModulo16Bits) {
  QueryAndRelease();
  ExpectFormatLeft(3);
  const std::vector<std::pair<std::uint32_t, int>> rates = {{30, 150}, {13107, 65535}, {13108, 4}};
  for (const auto& [fps, interval] : rates) {
    EXPECT_EQ(Open("0", 640, 480, fps), 0);
    EXPECT_EQ(platform.LastEncodeParam().keyFrameInterval, interval);
    EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  }
}

TEST_F(OpenSequence, FailedRunLeavesTheCameraOpenUntilClose) {
  QueryAndRelease();
  ExpectFormatLeft(2);
  platform.AnswersNth("IMediaControl::Run", 1, Fails(E_ACCESSDENIED));
  EXPECT_EQ(Open(), NUVEQ_CAMERA_GRAPH_FAILED);
  EXPECT_THAT(LogLines(),
              ElementsAre(WarnLine(708, "[CameraOperator]Start open camera(CameraOperator::OpenCameraInner)"),
                          ErrorLine("[CameraOperator]start OpenCamera, width:640, height:480, fps:30"
                                    "(CameraOperator::OpenCamera)"),
                          ErrorLine("[CameraOperator]Set camera parameter, (640,480,30,844715353)"
                                    "(CameraOperator::SetCameraFormat)"),
                          ErrorLine("[CameraOperator]OpenCamera success.(CameraOperator::OpenCamera)"),
                          ErrorLine(763,
                                    "[CameraOperator]fail to update service status, error: -2147024891"
                                    "(CameraOperator::OpenCameraInner)")));
  EXPECT_THAT(platform.Alive(), ::testing::UnorderedElementsAre(
                                    "encoder", "frame", "frame", "frame", "frame", "frame", "graph: 2",
                                    "built-in: 1", "built-in.capture: 1", "grabber: 1", "grabber.in: 1",
                                    "grabber.out: 1", "current media type", "pin of the module"));
  EXPECT_THAT(platform.Journal(), Contains("status callback \"0\" 1 4"));
  EXPECT_EQ(platform.Calls().back(), "IMediaControl::Run()");
  EXPECT_EQ(platform.CallCount("PinModule"), 1U) << "only a close can take the graph apart";

  EXPECT_EQ(Open(), NUVEQ_CAMERA_ALREADY_OPEN);

  platform.ClearJournal();
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  EXPECT_THAT(
      platform.Journal(),
      ElementsAre("log: [CameraOperator]CloseCameraInner.(CameraOperator::CloseCameraInner)",
                  "IMediaControl::Stop()", "IMediaEvent::WaitForCompletion(-1)", "status callback \"0\" 1 3",
                  "VideoFrame::ReleaseBuffer()", "VideoFrame::ReleaseBuffer()", "VideoFrame::ReleaseBuffer()",
                  "VideoFrame::ReleaseBuffer()", "VideoFrame::ReleaseBuffer()",
                  "VideoEncoder::ReleaseEncoder()", "UnpinModule(soon)"));
  EXPECT_EQ(Open(), 0);
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
}

TEST_F(OpenSequence, RunReturningSFalseIsAFailure) {
  QueryAndRelease();
  ExpectFormatLeft();
  platform.Answers("IMediaControl::Run", SFalse());
  EXPECT_EQ(Open(), NUVEQ_CAMERA_GRAPH_FAILED);
  EXPECT_THAT(LogLines(), Contains(ErrorLine(763,
                                             "[CameraOperator]fail to update service status, error: 1"
                                             "(CameraOperator::OpenCameraInner)")));
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
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

TEST_F(OpenSequence, StatusCallbackErrorIsOnlyLogged) {
  QueryAndRelease();
  ExpectFormatLeft();
  host.SetStatusResult(-9);
  EXPECT_EQ(Open(), 0);
  EXPECT_THAT(LogLines(), Contains(ErrorLine(784,
                                             "[CameraOperator]fail to update service status, error: -9"
                                             "(CameraOperator::UpdateServiceStatusToNuveq)")));
  EXPECT_EQ(Open(), NUVEQ_CAMERA_ALREADY_OPEN);
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
}

TEST_F(OpenSequence, EmptySizeIsRefusedAndItsEncoderReleasedByTheNextOpen) {
  QueryAndRelease();
  EXPECT_EQ(Open("0", 0, 480, 30), NUVEQ_CAMERA_ENCODER_FAILED);
  EXPECT_THAT(LogLines(), Contains(ErrorLine(
                              546, "[CameraOperator]AllocBuffer fail.(CameraOperator::InitVideoEncoder)")));
  EXPECT_THAT(platform.Alive(), ElementsAre("encoder"));
  EXPECT_THAT(platform.Calls(), Not(Contains(HasSubstr("AllocBuffer"))));

  ExpectFormatLeft();
  platform.ClearJournal();
  EXPECT_EQ(Open(), 0);
  EXPECT_THAT(platform.Alive(), Contains("encoder").Times(1));
  EXPECT_THAT(platform.Calls(), Contains("VideoEncoder::ReleaseEncoder()").Times(1));
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  EXPECT_EQ(platform.CallCount("VideoEncoder::ReleaseEncoder"), 2U);
}

TEST_F(OpenSequence, UnlistedSizeIsRequestedAsYuy2) {
  QueryAndRelease();
  ExpectFormatLeft();
  EXPECT_EQ(Open("0", 1920, 1080, 60), 0);
  EXPECT_THAT(platform.Calls(),
              Contains("IAMStreamConfig::SetFormat(built-in.capture, MEDIASUBTYPE_YUY2, 1920x1080, "
                       "166666)"));
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
}

TEST_F(OpenSequence, CameraUnpluggedAfterTheQueryFailsInAddFilter) {
  QueryAndRelease();
  platform.SetPc({{}, {scripted::PlugInCamera()}});
  EXPECT_EQ(Open(), NUVEQ_CAMERA_GRAPH_FAILED);
  EXPECT_THAT(LogLines(), Contains(ErrorLine("[CameraOperator]AddFilter fail, error: -2147467261"
                                             "(CameraOperator::AddDeviceFilter)")));
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
}

}  // namespace
