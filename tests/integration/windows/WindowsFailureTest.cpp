// No camera, the wrong one, one that goes, and one that refuses: results, reports and lines on Windows.
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

// "ERROR CameraOperator:line [CameraOperator]text(CameraOperator::function)"; line 0 is the source's own.
std::string Line(int line, const std::string& text, const std::string& function) {
  return "ERROR CameraOperator:" + std::to_string(line) + " [CameraOperator]" + text +
         "(CameraOperator::" + function + ")";
}

class WithoutCamera : public WindowsCameraTest {
 protected:
  void ExpectThatThereIsNone() {
    EXPECT_EQ(Query(), NUVEQ_CAMERA_NOT_USABLE);
    EXPECT_THAT(reports, ElementsAre("action callback null 1 type 7 \"440\""));
    EXPECT_THAT(log.Get(), Contains(Line(792, "report camera driver error", "UpdateServiceActionToNuveq")));
    EXPECT_EQ(log.Get().back(), Line(981, "Can not find PC Camera", "GetCameraCapabilityInner"));
  }
};

TEST_F(WithoutCamera, SaysSoWhereThereIsNoCameraAtAll) {
  fixtures::UsePc(fixtures::Pc::kNoCamera);
  ExpectThatThereIsNone();
  // The system has no enumerator for an empty category, which it says with S_FALSE.
  EXPECT_EQ(log.Get().front(), Line(573, "fail to create enumrate class, error: 1", "CameraCount"));
}

TEST_F(WithoutCamera, SaysSoWhereACameraIsOnlyPluggedIn) {
  fixtures::UsePc(fixtures::Pc::kOnlyPlugIn);
  ExpectThatThereIsNone();
  EXPECT_EQ(log.Get().size(), 2U);
}

TEST_F(WithoutCamera, SaysSoWhereTheBuiltInOneCanBeUnplugged) {
  fixtures::SetRemovable(fixtures::Camera::kBuiltIn, true);
  ExpectThatThereIsNone();
}

TEST_F(WithoutCamera, SaysSoWhereTheDeviceHasNoChild) {
  fixtures::SetChildId(fixtures::Camera::kBuiltIn, "");
  ExpectThatThereIsNone();
}

TEST_F(WithoutCamera, SaysSoWhereTheUsbDeviceHasGoneBeforeTheFilter) {
  fixtures::SetUsbDevicePresent(fixtures::Camera::kBuiltIn, false);
  ExpectThatThereIsNone();
}

TEST_F(WithoutCamera, FindsItWhenItComes) {
  fixtures::UsePc(fixtures::Pc::kOnlyPlugIn);
  EXPECT_EQ(Query(), NUVEQ_CAMERA_NOT_USABLE);
  fixtures::UsePc(fixtures::Pc::kLaptop);
  ASSERT_NO_FATAL_FAILURE(Record(640, 480, 30, 5));
}

TEST_F(WithoutCamera, RefusesToOpenBeforeAnyQuery) {
  EXPECT_EQ(Open(), NUVEQ_CAMERA_GRAPH_FAILED);
  EXPECT_THAT(log.Get(), Contains(Line(0, "BindDeviceFilter fail.", "AddDeviceFilter")));
  EXPECT_EQ(Close(), 0);
}

class FailedOpen : public WindowsCameraTest {
 protected:
  void SetUp() override {
    WindowsCameraTest::SetUp();
    ASSERT_EQ(Query(), 0);
    log.Forget();
  }

  // After closing, the camera opens again and delivers.
  void ExpectToRecover() {
    // There is nothing running to have completed.
    EXPECT_EQ(Close(), 0);
    EXPECT_EQ(fixtures::LiveObjects(), 0);
    fixtures::UsePc(fixtures::Pc::kLaptop);
    fixtures::SetBehaviour(Fast());
    host.Reset();
    ASSERT_NO_FATAL_FAILURE(Record(640, 480, 30, 5));
  }
};

// The camera's name is known, nothing has it any more: the search ends well with no filter.
TEST_F(FailedOpen, OfACameraThatHasGoneSinceTheQuery) {
  fixtures::SetFilterPresent(fixtures::Camera::kBuiltIn, false);
  EXPECT_EQ(Open(), NUVEQ_CAMERA_GRAPH_FAILED);
  EXPECT_THAT(log.Get(), ElementsAre(kOpenStarts,
                                     Line(0, "start OpenCamera, width:640, height:480, fps:30", "OpenCamera"),
                                     Line(0, "AddFilter fail, error: -2147467261", "AddDeviceFilter"),
                                     Line(0, "AddDeviceFilter fail.", "OpenCamera"), kOpenFails));
  EXPECT_THAT(reports, IsEmpty());
  ExpectToRecover();
}

TEST_F(FailedOpen, OfTheLastCameraThatHasGoneSinceTheQuery) {
  fixtures::UsePc(fixtures::Pc::kNoCamera);
  EXPECT_EQ(Open(), NUVEQ_CAMERA_GRAPH_FAILED);
  EXPECT_THAT(log.Get(), ElementsAre(kOpenStarts,
                                     Line(0, "start OpenCamera, width:640, height:480, fps:30", "OpenCamera"),
                                     Line(294, "Enumerate device fail, error: 1", "BindDeviceFilter"),
                                     Line(0, "BindDeviceFilter fail.", "AddDeviceFilter"),
                                     Line(0, "AddDeviceFilter fail.", "OpenCamera"), kOpenFails));
  ExpectToRecover();
}

TEST_F(FailedOpen, OfACameraWhoseFilterCannotBeMade) {
  fixtures::CameraBehaviour behaviour = Fast();
  behaviour.bind = HRESULT_FROM_WIN32(ERROR_ACCESS_DENIED);
  fixtures::SetBehaviour(behaviour);
  EXPECT_EQ(Open(), NUVEQ_CAMERA_GRAPH_FAILED);
  EXPECT_THAT(log.Get(), ElementsAre(kOpenStarts,
                                     Line(0, "start OpenCamera, width:640, height:480, fps:30", "OpenCamera"),
                                     Line(308, "BindFilter fail. cameraIndex:0", "BindDeviceFilter"),
                                     Line(0, "BindDeviceFilter fail.", "AddDeviceFilter"),
                                     Line(0, "AddDeviceFilter fail.", "OpenCamera"), kOpenFails));
  ExpectToRecover();
}

TEST_F(FailedOpen, OfACameraThatRefusesTheFormat) {
  fixtures::CameraBehaviour behaviour = Fast();
  behaviour.setFormat = E_INVALIDARG;
  fixtures::SetBehaviour(behaviour);
  EXPECT_EQ(Open(), NUVEQ_CAMERA_GRAPH_FAILED);
  EXPECT_THAT(
      log.Get(),
      ElementsAre(kOpenStarts, Line(0, "start OpenCamera, width:640, height:480, fps:30", "OpenCamera"),
                  Line(0, "Set camera parameter, (640,480,30,844715353)", "SetCameraFormat"),
                  Line(0, "Set camera parameter fail, error:-2147024809", "SetCameraFormat"), kOpenFails));
  ExpectToRecover();
}

TEST_F(FailedOpen, OfASizeThatTheCameraDoesNotHave) {
  EXPECT_EQ(Open(800, 600), NUVEQ_CAMERA_GRAPH_FAILED);
  EXPECT_THAT(log.Get(),
              Contains(Line(0, "Set camera parameter, (800,600,30,844715353)", "SetCameraFormat")));
  ExpectToRecover();
}

TEST_F(FailedOpen, OfACameraThatCannotBeConnected) {
  fixtures::CameraBehaviour behaviour = Fast();
  behaviour.connect = VFW_E_NO_TRANSPORT;
  fixtures::SetBehaviour(behaviour);
  EXPECT_EQ(Open(), NUVEQ_CAMERA_GRAPH_FAILED);
  const std::vector<std::string> lines = log.Get();
  ASSERT_GE(lines.size(), 2U);
  EXPECT_THAT(lines[lines.size() - 2],
              StartsWith("ERROR CameraOperator:0 [CameraOperator]fail to Connect pin, error: -"));
  EXPECT_EQ(lines.back(), kOpenFails);
  ExpectToRecover();
}

TEST_F(FailedOpen, OfACameraThatCannotBeStarted) {
  fixtures::CameraBehaviour behaviour = Fast();
  behaviour.run = HRESULT_FROM_WIN32(ERROR_BUSY);
  fixtures::SetBehaviour(behaviour);
  EXPECT_EQ(Open(), NUVEQ_CAMERA_GRAPH_FAILED);
  EXPECT_EQ(log.Get().back(),
            Line(763, "fail to update service status, error: -2147024726", "OpenCameraInner"));
  // The open was reported when the graph stood; running it came after that.
  EXPECT_THAT(reports, ElementsAre("status callback \"0\" 1 4"));
  ExpectToRecover();
}

TEST_F(FailedOpen, OfASizeThatTheEncoderRefuses) {
  EXPECT_EQ(Open(8, 8), NUVEQ_CAMERA_ENCODER_FAILED);
  EXPECT_THAT(log.Get(), ElementsAre(kOpenStarts, Line(537, "init video encoder failed", "InitVideoEncoder"),
                                     Line(743, "fail to init video encoder", "OpenCameraInner")));
  ExpectToRecover();
}

TEST_F(FailedOpen, OfAnIdThatIsNone) {
  EXPECT_EQ(Open(640, 480, 30, "x"), NUVEQ_CAMERA_INVALID_ARGUMENT);
  EXPECT_THAT(log.Get(), ElementsAre(kOpenStarts, Line(716, "invalid camera id", "OpenCameraInner")));
  ExpectToRecover();
}

// --- Formats of the other kind ---

// Media types with another format block contribute nothing, not even a line; that is no failure.
TEST_F(FailedOpen, OfACameraWithTheOtherKindOfFormatAlone) {
  UseFormats({{Layout::kYuy2, 640, 480, 30, true}});
  ASSERT_EQ(Query(), 0);
  EXPECT_THAT(sizes, IsEmpty());
  EXPECT_THAT(rates, IsEmpty());
  EXPECT_THAT(log.Get(), IsEmpty());
  EXPECT_EQ(Open(), NUVEQ_CAMERA_GRAPH_FAILED);
  // Its pin keeps the format that it has, without a word; the grabber does not take that.
  EXPECT_THAT(log.Get(), Not(Contains(::testing::HasSubstr("SetCameraFormat"))));
  EXPECT_THAT(log.Get(), Contains(StartsWith("ERROR CameraOperator:0 [CameraOperator]fail to Connect pin, "
                                             "error: -")));
  ExpectToRecover();
}

TEST_F(FailedOpen, LeavesOutFormatsOfTheOtherKindAmongUsualOnes) {
  UseFormats({{Layout::kYuy2, 320, 240, 30}, {Layout::kYuy2, 640, 480, 30, true}});
  ASSERT_EQ(Query(), 0);
  EXPECT_THAT(sizes, ElementsAre(Size{320, 240}));
  ASSERT_NO_FATAL_FAILURE(Record(320, 240, 30, 5));
}

}  // namespace
