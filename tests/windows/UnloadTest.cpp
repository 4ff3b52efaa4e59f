// Unloading the DLL and ending its process in every state of the camera.
#include <windows.h>

#include <cstdlib>
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

// --- The end of the process ---

// A code that no crash and no ordinary end has.
constexpr int kEndedWell = 42;

class EndOfProcess : public WindowsCameraTest {
 protected:
  void SetUp() override {
    // Each end is tried in a process of its own, which runs this test from its beginning.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    WindowsCameraTest::SetUp();
  }

  void QueryAndOpen() {
    ASSERT_EQ(Query(), 0);
    ASSERT_EQ(Open(), 0);
    ASSERT_TRUE(host.WaitForPackets(3));
  }
};

TEST_F(EndOfProcess, WithTheCameraOpenByExit) {
  EXPECT_EXIT(
      {
        QueryAndOpen();
        std::exit(kEndedWell);
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
        std::exit(kEndedWell);
      },
      ::testing::ExitedWithCode(kEndedWell), "");
}

TEST_F(EndOfProcess, WithAFullPoolAndTheCameraWaiting) {
  EXPECT_EXIT(
      {
        Gate never;
        if (Query() == 0) {
          host.InData([&](const Packet&) { never.Wait(); });
          if (Open() == 0 && WaitFor([] { return fixtures::DeliveredFrames() >= 6; })) {
            std::exit(kEndedWell);
          }
        }
      },
      ::testing::ExitedWithCode(kEndedWell), "");
}

TEST_F(EndOfProcess, FromInsideTheDataCallback) {
  EXPECT_EXIT(
      {
        if (Query() == 0) {
          host.InData([](const Packet&) { std::exit(kEndedWell); });
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
        ASSERT_EQ(Query(), 0);
        ASSERT_EQ(Open(800, 600), NUVEQ_CAMERA_GRAPH_FAILED);
        std::exit(kEndedWell);
      },
      ::testing::ExitedWithCode(kEndedWell), "");
}

TEST_F(EndOfProcess, WithTheCameraClosed) {
  EXPECT_EXIT(
      {
        QueryAndOpen();
        Close();
        std::exit(kEndedWell);
      },
      ::testing::ExitedWithCode(kEndedWell), "");
}

}  // namespace
