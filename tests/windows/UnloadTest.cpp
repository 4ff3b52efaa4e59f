// Unloading the DLL and ending its process in every state of the camera.
#include <windows.h>

#include <cstdlib>
#include <iostream>
#include <string>
#include <thread>

#include "WindowsCameraTest.h"

namespace {

using Unloading = WindowsCameraTest;

TEST_F(Unloading, NeverUsedGoesAtOnce) {
  Unload();
  EXPECT_FALSE(IsMapped());
}

TEST_F(Unloading, AfterAQueryGoesAtOnce) {
  ASSERT_EQ(Query(), 0);
  Unload();
  EXPECT_FALSE(IsMapped());
}

TEST_F(Unloading, ClosedGoesAtOnce) {
  ASSERT_NO_FATAL_FAILURE(Record(640, 480, 30, 5));
  Unload();
  EXPECT_FALSE(IsMapped());
}

// A graph cannot be taken apart while its DLL is being unloaded: it waits for threads that wait for the
// loader.
TEST_F(Unloading, AfterAFailedOpenStaysUntilThatIsClosed) {
  ASSERT_EQ(Query(), 0);
  ASSERT_EQ(Open(800, 600), NUVEQ_CAMERA_GRAPH_FAILED);
  Unload();
  EXPECT_TRUE(IsMapped());
  Close();
  EXPECT_TRUE(WaitFor([&] { return !IsMapped(); }));
}

TEST_F(Unloading, ClosedAfterAFailedOpenGoesAtOnce) {
  ASSERT_EQ(Query(), 0);
  ASSERT_EQ(Open(800, 600), NUVEQ_CAMERA_GRAPH_FAILED);
  Close();
  Unload();
  EXPECT_FALSE(IsMapped());
}

// The thread that encodes is in the DLL, which therefore stays until the camera is closed.
TEST_F(Unloading, WithTheCameraOpenStaysAndGoesOn) {
  ASSERT_EQ(Query(), 0);
  ASSERT_EQ(Open(), 0);
  EXPECT_TRUE(host.WaitForPackets(3));
  Unload();
  EXPECT_TRUE(IsMapped());
  const std::uint64_t before = host.PacketCount();
  EXPECT_TRUE(host.WaitForPackets(before + 3));
  Close();
  EXPECT_TRUE(WaitFor([&] { return !IsMapped(); }));
}

TEST_F(Unloading, CanBeLoadedAgainAndClosedThen) {
  ASSERT_EQ(Query(), 0);
  ASSERT_EQ(Open(), 0);
  Unload();
  ASSERT_NO_FATAL_FAILURE(Load());
  EXPECT_EQ(Open(), NUVEQ_CAMERA_ALREADY_OPEN);
  Close();
  EXPECT_TRUE(IsMapped());
  Unload();
  EXPECT_FALSE(IsMapped());
}

TEST_F(Unloading, LoadsAndUnloadsTenTimes) {
  for (int round = 0; round < 10; ++round) {
    ASSERT_NO_FATAL_FAILURE(Record(320, 240, 30, 2));
    Unload();
    ASSERT_FALSE(IsMapped());
    EXPECT_EQ(fixtures::LiveObjects(), 0);
    ASSERT_NO_FATAL_FAILURE(Load());
  }
}

// The encoder of an open that failed without a graph stays, and may have threads of its own.
TEST_F(Unloading, AfterAnOpenOnAThreadWithoutComStaysToo) {
  ASSERT_EQ(Query(), 0);
  log.Forget();
  std::thread([&] { EXPECT_EQ(Open(1280, 720), NUVEQ_CAMERA_GRAPH_FAILED); }).join();
  EXPECT_THAT(log.Get(), ::testing::Contains("ERROR CameraOperator:0 [CameraOperator]CoCreateInstance fail, "
                                             "error: -2147221008(CameraOperator::InitCameraBasicInfo)"));
  // There is no graph to work on.
  EXPECT_EQ(Close(), 0);
  Unload();
  EXPECT_TRUE(IsMapped());
}

// --- The end of the process ---

// Codes that no crash and no ordinary end has.
constexpr int kEndedWell = 42;
constexpr int kNeverOpened = 43;

class EndOfProcess : public WindowsCameraTest {
 protected:
  void SetUp() override {
    // Each end is tried in a process of its own, which runs this test from its beginning.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    WindowsCameraTest::SetUp();
  }

  // Ends the process with another code when the camera does not stream, and says what it came to: what the
  // process writes is shown when its code is not the one that is waited for.
  void QueryAndOpen() {
    const int query = Query();
    const int open = query == 0 ? Open() : -1;
    if (open == 0 && host.WaitForPackets(3)) {
      return;
    }
    std::cerr << "query: " << query << ", open: " << open << ", packets: " << host.PacketCount() << '\n';
    for (const std::string& line : log.Get()) {
      std::cerr << line << '\n';
    }
    std::_Exit(kNeverOpened);
  }
};

TEST_F(EndOfProcess, WithTheCameraOpenByExit) {
  EXPECT_EXIT(
      {
        QueryAndOpen();
        std::exit(kEndedWell);  // NOLINT(concurrency-mt-unsafe): how an exit meets a thread is the matter
      },
      ::testing::ExitedWithCode(kEndedWell), "");
}

TEST_F(EndOfProcess, WithTheCameraOpenByExitProcess) {
  EXPECT_EXIT(
      {
        QueryAndOpen();
        ExitProcess(kEndedWell);
      },
      ::testing::ExitedWithCode(kEndedWell), "");
}

TEST_F(EndOfProcess, WithTheCameraOpenAndTheLibraryUnloaded) {
  EXPECT_EXIT(
      {
        QueryAndOpen();
        Unload();
        std::exit(kEndedWell);  // NOLINT(concurrency-mt-unsafe): how an exit meets a thread is the matter
      },
      ::testing::ExitedWithCode(kEndedWell), "");
}

TEST_F(EndOfProcess, WithAFullPoolAndTheCameraWaiting) {
  EXPECT_EXIT(
      {
        Gate never;
        host.InData([&](const Packet&) { never.Wait(); });
        if (Query() == 0 && Open() == 0 &&
            WaitFor([] { return fixtures::DeliveredFrames() >= kWaitingFrame; })) {
          std::exit(kEndedWell);  // NOLINT(concurrency-mt-unsafe): how an exit meets a thread is the matter
        }
      },
      ::testing::ExitedWithCode(kEndedWell), "");
}

TEST_F(EndOfProcess, FromInsideTheDataCallback) {
  EXPECT_EXIT(
      {
        if (Query() == 0) {
          host.InData([](const Packet&) {
            std::exit(kEndedWell);  // NOLINT(concurrency-mt-unsafe): what a host should not do, and may
          });
          Open();
          Gate never;
          never.Wait();
        }
      },
      ::testing::ExitedWithCode(kEndedWell), "");
}

TEST_F(EndOfProcess, AfterAFailedOpen) {
  EXPECT_EXIT(
      {
        if (Query() == 0 && Open(800, 600) == NUVEQ_CAMERA_GRAPH_FAILED) {
          std::exit(kEndedWell);  // NOLINT(concurrency-mt-unsafe): how an exit meets a thread is the matter
        }
      },
      ::testing::ExitedWithCode(kEndedWell), "");
}

TEST_F(EndOfProcess, WithTheCameraClosed) {
  EXPECT_EXIT(
      {
        QueryAndOpen();
        Close();
        std::exit(kEndedWell);  // NOLINT(concurrency-mt-unsafe): how an exit meets a thread is the matter
      },
      ::testing::ExitedWithCode(kEndedWell), "");
}

TEST_F(EndOfProcess, AfterAQueryAlone) {
  EXPECT_EXIT(
      {
        if (Query() == 0) {
          std::exit(kEndedWell);  // NOLINT(concurrency-mt-unsafe): how an exit meets a thread is the matter
        }
      },
      ::testing::ExitedWithCode(kEndedWell), "");
}

}  // namespace
