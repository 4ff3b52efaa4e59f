// Results, reports and log messages on Windows if there is no usable camera or it fails.
#include <vfwmsgs.h>

#include "WindowsCameraTest.h"

namespace {

using fixtures::Layout;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

const std::string kOpenStarts =
    "WARN CameraOperator:708 [CameraOperator]Start open camera(CameraOperator::OpenCameraInner)";
const std::string kOpenFails =
    "ERROR CameraOperator:754 [CameraOperator]fail to open camera(CameraOperator::OpenCameraInner)";

// "ERROR CameraOperator:line [CameraOperator]text(CameraOperator::function)"; line 0: see LogCapture.
std::string Line(int line, const std::string& text, const std::string& function) {
  return "ERROR CameraOperator:" + std::to_string(line) + " [CameraOperator]" + text +
         "(CameraOperator::" + function + ")";
}

class NoUsableCamera : public WindowsCameraTest {
 protected:
  void ExpectQueryFails() {
    EXPECT_EQ(Query(), NUVEQ_CAMERA_NOT_USABLE);
    EXPECT_THAT(reports, ElementsAre("action callback null 1 type 7 \"440\""));
    EXPECT_THAT(log.Lines(), Contains(Line(792, "report camera driver error", "UpdateServiceActionToNuveq")));
    EXPECT_EQ(log.Lines().back(), Line(981, "Can not find PC Camera", "GetCameraCapabilityInner"));
  }
};

TEST_F(NoUsableCamera, QueryFailsWithoutCameras) {
  fixtures::UsePc(fixtures::Pc::kNoCamera);
  ExpectQueryFails();
  // For an empty category, CreateClassEnumerator returns S_FALSE without an enumerator.
  EXPECT_EQ(log.Lines().front(), Line(573, "fail to create enumrate class, error: 1", "CameraCount"));
}

TEST_F(NoUsableCamera, QueryFailsWithOnlyAPlugInCamera) {
  fixtures::UsePc(fixtures::Pc::kOnlyPlugIn);
  ExpectQueryFails();
  EXPECT_EQ(log.Lines().size(), 2U);
}

TEST_F(NoUsableCamera, QueryFailsIfTheUsbDeviceIsRemovable) {
  fixtures::SetRemovable(fixtures::Camera::kBuiltIn, true);
  ExpectQueryFails();
}

TEST_F(NoUsableCamera, QueryFailsIfTheUsbDeviceHasNoChild) {
  fixtures::SetChildId(fixtures::Camera::kBuiltIn, "");
  ExpectQueryFails();
}

TEST_F(NoUsableCamera, QueryFailsIfTheUsbDeviceIsAbsent) {
  fixtures::SetUsbDevicePresent(fixtures::Camera::kBuiltIn, false);
  ExpectQueryFails();
}

TEST_F(NoUsableCamera, CameraThatAppearsLaterIsFound) {
  fixtures::UsePc(fixtures::Pc::kOnlyPlugIn);
  EXPECT_EQ(Query(), NUVEQ_CAMERA_NOT_USABLE);
  fixtures::UsePc(fixtures::Pc::kLaptop);
  ASSERT_NO_FATAL_FAILURE(Record(640, 480, 30, 5));
}

TEST_F(NoUsableCamera, OpenFailsBeforeAnyQuery) {
  EXPECT_EQ(Open(), NUVEQ_CAMERA_GRAPH_FAILED);
  EXPECT_THAT(log.Lines(), Contains(Line(0, "BindDeviceFilter fail.", "AddDeviceFilter")));
  EXPECT_EQ(Close(), 0);
}

class OpenFails : public WindowsCameraTest {
 protected:
  void SetUp() override {
    WindowsCameraTest::SetUp();
    ASSERT_EQ(Query(), 0);
    log.Clear();
  }

  // Closes; then a session with a working camera succeeds.
  void ExpectRecovery() {
    EXPECT_EQ(Close(), 0);
    EXPECT_EQ(fixtures::LiveObjects(), 0);
    fixtures::UsePc(fixtures::Pc::kLaptop);
    fixtures::SetBehaviour(Unpaced());
    host.Reset();
    ASSERT_NO_FATAL_FAILURE(Record(640, 480, 30, 5));
  }
};

// No device has the known name any more, so the search succeeds without a filter.
TEST_F(OpenFails, IfTheCameraWasRemovedAfterTheQuery) {
  fixtures::SetFilterPresent(fixtures::Camera::kBuiltIn, false);
  EXPECT_EQ(Open(), NUVEQ_CAMERA_GRAPH_FAILED);
  EXPECT_THAT(
      log.Lines(),
      ElementsAre(kOpenStarts, Line(0, "start OpenCamera, width:640, height:480, fps:30", "OpenCamera"),
                  Line(0, "AddFilter fail, error: -2147467261", "AddDeviceFilter"),
                  Line(0, "AddDeviceFilter fail.", "OpenCamera"), kOpenFails));
  EXPECT_THAT(reports, IsEmpty());
  ExpectRecovery();
}

TEST_F(OpenFails, IfTheLastCameraWasRemovedAfterTheQuery) {
  fixtures::UsePc(fixtures::Pc::kNoCamera);
  EXPECT_EQ(Open(), NUVEQ_CAMERA_GRAPH_FAILED);
  EXPECT_THAT(
      log.Lines(),
      ElementsAre(kOpenStarts, Line(0, "start OpenCamera, width:640, height:480, fps:30", "OpenCamera"),
                  Line(294, "Enumerate device fail, error: 1", "BindDeviceFilter"),
                  Line(0, "BindDeviceFilter fail.", "AddDeviceFilter"),
                  Line(0, "AddDeviceFilter fail.", "OpenCamera"), kOpenFails));
  ExpectRecovery();
}

TEST_F(OpenFails, IfTheFilterCannotBeCreated) {
  fixtures::CameraBehaviour behaviour = Unpaced();
  behaviour.bind = HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED);
  fixtures::SetBehaviour(behaviour);
  EXPECT_EQ(Open(), NUVEQ_CAMERA_GRAPH_FAILED);
  EXPECT_THAT(
      log.Lines(),
      ElementsAre(kOpenStarts, Line(0, "start OpenCamera, width:640, height:480, fps:30", "OpenCamera"),
                  Line(308, "BindFilter fail. cameraIndex:0", "BindDeviceFilter"),
                  Line(0, "BindDeviceFilter fail.", "AddDeviceFilter"),
                  Line(0, "AddDeviceFilter fail.", "OpenCamera"), kOpenFails));
  ExpectRecovery();
}

TEST_F(OpenFails, IfTheCameraRejectsTheFormat) {
  fixtures::CameraBehaviour behaviour = Unpaced();
  behaviour.setFormat = E_INVALIDARG;
  fixtures::SetBehaviour(behaviour);
  EXPECT_EQ(Open(), NUVEQ_CAMERA_GRAPH_FAILED);
  EXPECT_THAT(
      log.Lines(),
      ElementsAre(kOpenStarts, Line(0, "start OpenCamera, width:640, height:480, fps:30", "OpenCamera"),
                  Line(0, "Set camera parameter, (640,480,30,844715353)", "SetCameraFormat"),
                  Line(0, "Set camera parameter fail, error:-2147024809", "SetCameraFormat"), kOpenFails));
  ExpectRecovery();
}

TEST_F(OpenFails, IfTheCameraDoesNotSupportTheSize) {
  EXPECT_EQ(Open(800, 600), NUVEQ_CAMERA_GRAPH_FAILED);
  EXPECT_THAT(log.Lines(),
              Contains(Line(0, "Set camera parameter, (800,600,30,844715353)", "SetCameraFormat")));
  ExpectRecovery();
}

TEST_F(OpenFails, IfTheCameraCannotBeConnected) {
  fixtures::CameraBehaviour behaviour = Unpaced();
  behaviour.connect = VFW_E_NO_TRANSPORT;
  fixtures::SetBehaviour(behaviour);
  EXPECT_EQ(Open(), NUVEQ_CAMERA_GRAPH_FAILED);
  const std::vector<std::string> lines = log.Lines();
  ASSERT_GE(lines.size(), 2U);
  EXPECT_THAT(lines[lines.size() - 2],
              StartsWith("ERROR CameraOperator:0 [CameraOperator]fail to Connect pin, error: -"));
  EXPECT_EQ(lines.back(), kOpenFails);
  ExpectRecovery();
}

TEST_F(OpenFails, IfTheCameraCannotBeStarted) {
  fixtures::CameraBehaviour behaviour = Unpaced();
  behaviour.run = HRESULT_FROM_WIN32(ERROR_BUSY);
  fixtures::SetBehaviour(behaviour);
  EXPECT_EQ(Open(), NUVEQ_CAMERA_GRAPH_FAILED);
  EXPECT_EQ(log.Lines().back(),
            Line(763, "fail to update service status, error: -2147024726", "OpenCameraInner"));
  // The open is reported before the graph runs.
  EXPECT_THAT(reports, ElementsAre("status callback \"0\" 1 4"));
  ExpectRecovery();
}

TEST_F(OpenFails, IfTheEncoderDoesNotSupportTheSize) {
  EXPECT_EQ(Open(8, 8), NUVEQ_CAMERA_ENCODER_FAILED);
  EXPECT_THAT(log.Lines(),
              ElementsAre(kOpenStarts, Line(537, "init video encoder failed", "InitVideoEncoder"),
                          Line(743, "fail to init video encoder", "OpenCameraInner")));
  ExpectRecovery();
}

TEST_F(OpenFails, IfTheCameraIdIsInvalid) {
  EXPECT_EQ(Open(640, 480, 30, "x"), NUVEQ_CAMERA_INVALID_ARGUMENT);
  EXPECT_THAT(log.Lines(), ElementsAre(kOpenStarts, Line(716, "invalid camera id", "OpenCameraInner")));
  ExpectRecovery();
}

// --- VIDEOINFOHEADER2 formats ---

// The query ignores these formats without logging.
TEST_F(OpenFails, IfTheCameraHasOnlyVideoInfo2Formats) {
  UseFormats({{Layout::kYuy2, 640, 480, 30, true}});
  ASSERT_EQ(Query(), 0);
  EXPECT_THAT(sizes, IsEmpty());
  EXPECT_THAT(rates, IsEmpty());
  EXPECT_THAT(log.Lines(), IsEmpty());
  EXPECT_EQ(Open(), NUVEQ_CAMERA_GRAPH_FAILED);
  // SetCameraFormat finds no format and logs nothing; the grabber rejects the pin's current format.
  EXPECT_THAT(log.Lines(), Not(Contains(::testing::HasSubstr("SetCameraFormat"))));
  EXPECT_THAT(log.Lines(), Contains(StartsWith("ERROR CameraOperator:0 [CameraOperator]fail to Connect pin, "
                                               "error: -")));
  ExpectRecovery();
}

using VideoInfo2Formats = WindowsCameraTest;

TEST_F(VideoInfo2Formats, AreIgnoredAmongOthers) {
  UseFormats({{Layout::kYuy2, 320, 240, 30}, {Layout::kYuy2, 640, 480, 30, true}});
  ASSERT_EQ(Query(), 0);
  EXPECT_THAT(sizes, ElementsAre(Size{320, 240}));
  ASSERT_NO_FATAL_FAILURE(Record(320, 240, 30, 5));
}

}  // namespace
