// Sessions on Windows: opening, streaming and closing. LogMessagesTest.cpp tests the log messages.
#include <windows.h>

#include <thread>

#include "WindowsCameraTest.h"

namespace {

using ::testing::ElementsAre;

using WindowsSession = WindowsCameraTest;

// CloseCameraDevice returns 0 because WaitForCompletion fails for a stopped graph.
constexpr int kClosed = 0;

TEST_F(WindowsSession, LogsAndReportsEveryStep) {
  UseFormats({{fixtures::Layout::kYuy2, 640, 480, 30}});
  ASSERT_EQ(Query(), 0);
  EXPECT_THAT(LoggingFunctions(), ElementsAre("ParseMediaType"));
  log.Clear();
  ASSERT_EQ(Open(), 0);
  EXPECT_THAT(LoggingFunctions(), ElementsAre("OpenCameraInner", "OpenCamera", "SetCameraFormat",
                                              "OpenCamera", "OpenCameraInner"));
  log.Clear();
  EXPECT_TRUE(host.WaitForPackets(1));
  EXPECT_EQ(Close(), kClosed);
  EXPECT_THAT(LoggingFunctions(), ElementsAre("CloseCameraInner"));
  EXPECT_THAT(reports, ElementsAre("status callback \"0\" 1 4", "status callback \"0\" 1 3"));
}

TEST_F(WindowsSession, SecondOpenFailsAndStreamingContinues) {
  ASSERT_EQ(Query(), 0);
  ASSERT_EQ(Open(), 0);
  reports.clear();
  EXPECT_EQ(Open(320, 240), NUVEQ_CAMERA_ALREADY_OPEN);
  EXPECT_THAT(reports, ElementsAre("status callback \"0\" 1 4"));
  const std::uint64_t before = host.PacketCount();
  EXPECT_TRUE(host.WaitForPackets(before + 10));
  EXPECT_EQ(Close(), kClosed);
}

TEST_F(WindowsSession, NoPacketArrivesAfterClose) {
  ASSERT_NO_FATAL_FAILURE(Record(320, 240, 30, 10));
  const std::uint64_t packets = host.PacketCount();
  const std::uint64_t frames = fixtures::DeliveredFrames();
  EXPECT_EQ(fixtures::StreamingThreads(), 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_EQ(host.PacketCount(), packets);
  EXPECT_EQ(fixtures::DeliveredFrames(), frames);
}

TEST_F(WindowsSession, QuerySucceedsBetweenSessions) {
  for (int round = 0; round < 3; ++round) {
    ASSERT_EQ(Query(), 0);
    EXPECT_EQ(sizes.size(), 4U);
    ASSERT_NO_FATAL_FAILURE(Record(320, 240, 15, 3));
  }
}

TEST_F(WindowsSession, ClosesWhileTheCameraWaitsForABuffer) {
  ASSERT_EQ(Query(), 0);
  Gate gate;
  host.InData([&](const Packet&) { EXPECT_TRUE(gate.Wait()); });
  ASSERT_EQ(Open(), 0);
  ASSERT_TRUE(WaitFor([] { return fixtures::DeliveredFrames() >= kBlockedFrame; }));
  log.Clear();
  std::thread closer([&] { EXPECT_EQ(Close(), kClosed); });
  EXPECT_TRUE(WaitFor([&] { return !log.Lines().empty(); })) << "the close has not started";
  gate.Open();
  closer.join();
}

TEST_F(WindowsSession, ClosesAfterOversizedFramesUsedUpAllBuffers) {
  fixtures::CameraBehaviour behaviour = Unpaced();
  behaviour.extraBytes = 16;
  fixtures::SetBehaviour(behaviour);
  ASSERT_EQ(Query(), 0);
  ASSERT_EQ(Open(), 0);
  // Each of five frames has lost its buffer; the sixth waits for one.
  ASSERT_TRUE(WaitFor([] { return fixtures::DeliveredFrames() >= 6; }));
  EXPECT_EQ(Close(), kClosed);
  EXPECT_EQ(host.PacketCount(), 0U);
  fixtures::SetBehaviour(Unpaced());
  ASSERT_NO_FATAL_FAILURE(Record(640, 480, 30, 10));
}

TEST_F(WindowsSession, ClosesAfterTheCameraDisconnected) {
  fixtures::CameraBehaviour behaviour = Unpaced();
  behaviour.lostAfter = 10;
  fixtures::SetBehaviour(behaviour);
  ASSERT_EQ(Query(), 0);
  ASSERT_EQ(Open(), 0);
  EXPECT_TRUE(host.WaitForPackets(10));
  EXPECT_EQ(Close(), kClosed);
  EXPECT_EQ(host.PacketCount(), 10U);
  fixtures::SetBehaviour(Unpaced());
  ASSERT_NO_FATAL_FAILURE(Record(640, 480, 30, 10));
}

// The host initialises COM on every thread that calls the library.
TEST_F(WindowsSession, CallsCanComeFromDifferentThreads) {
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
