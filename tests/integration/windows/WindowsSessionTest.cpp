// Opening, streaming and closing on Windows, over and over, and the lines that the library logs on the way.
#include <windows.h>

#include <atomic>
#include <thread>

#include "WindowsCameraTest.h"

namespace {

using ::testing::ElementsAre;

using Session = WindowsCameraTest;

// The system does not call a stopped graph completed, and closing answers what the system says.
constexpr int kClosed = 0;

TEST_F(Session, TellsEveryStepOfItsWay) {
  UseFormats({{fixtures::Layout::kYuy2, 640, 480, 30}});
  ASSERT_EQ(Query(), 0);
  ASSERT_EQ(Open(), 0);
  EXPECT_TRUE(host.WaitForPackets(1));
  EXPECT_EQ(Close(), kClosed);
  EXPECT_THAT(
      log.Get(),
      ElementsAre(
          "ERROR CameraOperator:427 [CameraOperator]ParseMediaType success, width: 640, "
          "height:480,fps:30,subType:844715353(CameraOperator::ParseMediaType)",
          "WARN CameraOperator:708 [CameraOperator]Start open camera(CameraOperator::OpenCameraInner)",
          "ERROR CameraOperator:0 [CameraOperator]start OpenCamera, width:640, height:480, fps:30"
          "(CameraOperator::OpenCamera)",
          "ERROR CameraOperator:0 [CameraOperator]Set camera parameter, (640,480,30,844715353)"
          "(CameraOperator::SetCameraFormat)",
          "ERROR CameraOperator:0 [CameraOperator]OpenCamera success.(CameraOperator::OpenCamera)",
          "WARN CameraOperator:775 [CameraOperator]open camera success(CameraOperator::OpenCameraInner)",
          "ERROR CameraOperator:950 [CameraOperator]CloseCameraInner.(CameraOperator::CloseCameraInner)"));
  EXPECT_THAT(reports, ElementsAre("status callback \"0\" 1 4", "status callback \"0\" 1 3"));
}

TEST_F(Session, RefusesASecondOpenAndGoesOn) {
  ASSERT_EQ(Query(), 0);
  ASSERT_EQ(Open(), 0);
  log.Forget();
  reports.clear();
  EXPECT_EQ(Open(320, 240), NUVEQ_CAMERA_ALREADY_OPEN);
  EXPECT_THAT(log.Get(), ElementsAre("WARN CameraOperator:708 [CameraOperator]Start open camera"
                                     "(CameraOperator::OpenCameraInner)",
                                     "ERROR CameraOperator:721 [CameraOperator]Camera is already open."
                                     "(CameraOperator::OpenCameraInner)"));
  EXPECT_THAT(reports, ElementsAre("status callback \"0\" 1 4"));
  const std::uint64_t before = host.PacketCount();
  EXPECT_TRUE(host.WaitForPackets(before + 10));
  EXPECT_EQ(Close(), kClosed);
}

TEST_F(Session, HearsNothingAfterTheClose) {
  ASSERT_NO_FATAL_FAILURE(Record(320, 240, 30, 10));
  const std::uint64_t packets = host.PacketCount();
  const std::uint64_t frames = fixtures::DeliveredFrames();
  EXPECT_EQ(fixtures::StreamingThreads(), 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_EQ(host.PacketCount(), packets);
  EXPECT_EQ(fixtures::DeliveredFrames(), frames);
}

TEST_F(Session, QueriesBetweenAndAfterSessions) {
  for (int round = 0; round < 3; ++round) {
    ASSERT_EQ(Query(), 0);
    EXPECT_EQ(sizes.size(), 4U);
    ASSERT_NO_FATAL_FAILURE(Record(320, 240, 15, 3));
  }
}

TEST_F(Session, ClosesWhileTheCameraWaitsForABuffer) {
  ASSERT_EQ(Query(), 0);
  Gate mayAnswer;
  host.InData([&](const Packet&) { EXPECT_TRUE(mayAnswer.Wait()); });
  ASSERT_EQ(Open(), 0);
  ASSERT_TRUE(WaitFor([] { return fixtures::DeliveredFrames() >= kWaitingFrame; }));
  log.Forget();
  std::thread closer([&] { EXPECT_EQ(Close(), kClosed); });
  EXPECT_TRUE(WaitFor([&] { return !log.Get().empty(); })) << "the close has not begun";
  mayAnswer.Open();
  closer.join();
}

TEST_F(Session, ClosesAfterFramesThatDoNotFitHaveUsedUpTheBuffers) {
  fixtures::CameraBehaviour behaviour = Fast();
  behaviour.extraBytes = 16;
  fixtures::SetBehaviour(behaviour);
  ASSERT_EQ(Query(), 0);
  ASSERT_EQ(Open(), 0);
  // Five have taken the buffers with them, the sixth waits.
  ASSERT_TRUE(WaitFor([] { return fixtures::DeliveredFrames() >= 6; }));
  EXPECT_EQ(Close(), kClosed);
  EXPECT_EQ(host.PacketCount(), 0U);
  fixtures::SetBehaviour(Fast());
  ASSERT_NO_FATAL_FAILURE(Record(640, 480, 30, 10));
}

TEST_F(Session, ClosesAfterTheCameraHasGone) {
  fixtures::CameraBehaviour behaviour = Fast();
  behaviour.lostAfter = 10;
  fixtures::SetBehaviour(behaviour);
  ASSERT_EQ(Query(), 0);
  ASSERT_EQ(Open(), 0);
  EXPECT_TRUE(host.WaitForPackets(10));
  EXPECT_EQ(Close(), kClosed);
  EXPECT_EQ(host.PacketCount(), 10U);
  fixtures::SetBehaviour(Fast());
  ASSERT_NO_FATAL_FAILURE(Record(640, 480, 30, 10));
}

// The platform initialises COM on every thread from which it calls.
TEST_F(Session, IsDrivenFromOneThreadAfterAnother) {
  for (const auto& step : std::vector<std::function<void()>>{
           [&] { EXPECT_EQ(Query(), 0); }, [&] { EXPECT_EQ(Open(), 0); },
           [&] { EXPECT_TRUE(host.WaitForPackets(5)); }, [&] { EXPECT_EQ(Close(), kClosed); }}) {
    std::thread([&] {
      EXPECT_EQ(CoInitializeEx(nullptr, COINIT_MULTITHREADED), S_OK);
      step();
      CoUninitialize();
    }).join();
  }
}

}  // namespace
