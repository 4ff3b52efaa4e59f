// Results and reports on Windows if there is no usable camera or it fails. The functions that log identify
// the failed step.
#include <vfwmsgs.h>

#include "WindowsCameraTest.h"

namespace {

using fixtures::Layout;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

class NoUsableCamera : public WindowsCameraTest {
 protected:
  void ExpectQueryFails() {
    EXPECT_EQ(Query(), NUVEQ_CAMERA_NOT_USABLE);
    EXPECT_THAT(reports, ElementsAre("action callback null 1 type 7 \"440\""));
  }
};

TEST_F(NoUsableCamera, QueryFailsWithoutCameras) {
  fixtures::UsePc(fixtures::Pc::kNoCamera);
  ExpectQueryFails();
  // For an empty category, CreateClassEnumerator returns S_FALSE without an enumerator.
  EXPECT_THAT(LoggingFunctions(), Contains("CameraCount"));
}

TEST_F(NoUsableCamera, QueryFailsWithOnlyAPlugInCamera) {
  fixtures::UsePc(fixtures::Pc::kOnlyPlugIn);
  ExpectQueryFails();
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
  EXPECT_EQ(Close(), 0);
}

class OpenFails : public WindowsCameraTest {
 protected:
  void SetUp() override {
    WindowsCameraTest::SetUp();
    ASSERT_EQ(Query(), 0);
    log.Clear();
  }

  // functions: those that log, between the two messages with which an open starts and the one with which it
  // ends. cause: text of one of the messages.
  void ExpectOpenFailsIn(std::vector<std::string> functions, const std::string& cause,
                         std::uint32_t width = 640, std::uint32_t height = 480) {
    EXPECT_EQ(Open(width, height), NUVEQ_CAMERA_GRAPH_FAILED);
    EXPECT_THAT(log.Lines(), Contains(HasSubstr(cause)));
    functions.insert(functions.begin(), {"OpenCameraInner", "OpenCamera"});
    functions.emplace_back("OpenCameraInner");
    EXPECT_THAT(LoggingFunctions(), ElementsAreArray(functions));
    EXPECT_THAT(reports, IsEmpty());
    ExpectRecovery();
  }

  // A result as the library logs it, at the end of a message.
  static std::string ResultText(HRESULT result) { return std::to_string(result) + "("; }

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
  ExpectOpenFailsIn({"AddDeviceFilter", "OpenCamera"}, ResultText(E_POINTER));
}

TEST_F(OpenFails, IfTheLastCameraWasRemovedAfterTheQuery) {
  fixtures::UsePc(fixtures::Pc::kNoCamera);
  ExpectOpenFailsIn({"BindDeviceFilter", "AddDeviceFilter", "OpenCamera"}, ResultText(S_FALSE));
}

TEST_F(OpenFails, IfTheFilterCannotBeCreated) {
  fixtures::CameraBehaviour behaviour = Unpaced();
  behaviour.bind = HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED);
  fixtures::SetBehaviour(behaviour);
  // The message has no result code.
  ExpectOpenFailsIn({"BindDeviceFilter", "AddDeviceFilter", "OpenCamera"}, "cameraIndex:0");
}

TEST_F(OpenFails, IfTheCameraRejectsTheFormat) {
  fixtures::CameraBehaviour behaviour = Unpaced();
  behaviour.setFormat = E_INVALIDARG;
  fixtures::SetBehaviour(behaviour);
  ExpectOpenFailsIn({"SetCameraFormat", "SetCameraFormat"}, ResultText(behaviour.setFormat));
}

TEST_F(OpenFails, IfTheCameraDoesNotSupportTheSize) {
  ExpectOpenFailsIn({"SetCameraFormat", "SetCameraFormat"}, ResultText(VFW_E_INVALIDMEDIATYPE), 800, 600);
}

TEST_F(OpenFails, IfTheCameraCannotBeConnected) {
  fixtures::CameraBehaviour behaviour = Unpaced();
  behaviour.connect = VFW_E_NO_TRANSPORT;
  fixtures::SetBehaviour(behaviour);
  ExpectOpenFailsIn({"SetCameraFormat", "OpenCamera"}, "Connect pin");
}

TEST_F(OpenFails, IfTheCameraCannotBeStarted) {
  fixtures::CameraBehaviour behaviour = Unpaced();
  behaviour.run = HRESULT_FROM_WIN32(ERROR_BUSY);
  fixtures::SetBehaviour(behaviour);
  EXPECT_EQ(Open(), NUVEQ_CAMERA_GRAPH_FAILED);
  EXPECT_THAT(log.Lines().back(), HasSubstr(ResultText(behaviour.run)));
  // The open is reported before the graph runs.
  EXPECT_THAT(reports, ElementsAre("status callback \"0\" 1 4"));
  ExpectRecovery();
}

TEST_F(OpenFails, IfTheEncoderDoesNotSupportTheSize) {
  EXPECT_EQ(Open(8, 8), NUVEQ_CAMERA_ENCODER_FAILED);
  EXPECT_THAT(LoggingFunctions(), Contains("InitVideoEncoder"));
  ExpectRecovery();
}

TEST_F(OpenFails, IfTheCameraIdIsInvalid) {
  EXPECT_EQ(Open(640, 480, 30, "x"), NUVEQ_CAMERA_INVALID_ARGUMENT);
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
  // SetCameraFormat finds no format and logs nothing; the grabber rejects the pin's current format.
  ExpectOpenFailsIn({"OpenCamera"}, "Connect pin");
}

using VideoInfo2Formats = WindowsCameraTest;

TEST_F(VideoInfo2Formats, AreIgnoredAmongOthers) {
  UseFormats({{Layout::kYuy2, 320, 240, 30}, {Layout::kYuy2, 640, 480, 30, true}});
  ASSERT_EQ(Query(), 0);
  EXPECT_THAT(sizes, ElementsAre(Size{320, 240}));
  ASSERT_NO_FATAL_FAILURE(Record(320, 240, 30, 5));
}

}  // namespace
