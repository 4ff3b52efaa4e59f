// Unloading with the camera open: the system cannot let the library join its thread meanwhile, so the unload
// waits until the camera is closed. The end of the process does not wait.
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <thread>

#include "DefaultsTest.h"
#include "HostCallbacks.h"

namespace {

using ::testing::ElementsAre;

class HeldModule : public Defaults {
 protected:
  void SetUp() override {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    Defaults::SetUp();
    host.Reset();
    ASSERT_EQ(handler.RegisterSendDataCallback(nullptr, 0, &HostCallbacks::OnData), 0);
  }

  void TearDown() override {
    if (HasFailure() && library.IsMapped()) {
      // What a failed test has left open would stay for the rest of the process.
      handler.CloseCameraDevice("0", 1);
    }
    Defaults::TearDown();
    EXPECT_TRUE(IsUnloadedInTheEnd());
    EXPECT_EQ(platform.CallCount("CoInitialize"), platform.CallCount("CoUninitialize"));
    host.Reset();
  }

  int Close() const { return handler.CloseCameraDevice("0", 1); }

  // Whoever lets the last hold go does so on a thread of its own.
  bool IsUnloadedInTheEnd() const {
    return WaitUntil([&] { return !library.IsMapped(); });
  }

  void DeliverAndReceive(std::uint8_t value) {
    const std::uint64_t packets = host.PacketCount();
    ASSERT_TRUE(platform.DeliverFrame(Frame(kFrameSize, value)));
    ASSERT_TRUE(host.WaitForPackets(packets + 1));
    EXPECT_EQ(host.Packets().back().bytes.at(0), value);
  }

  HostCallbacks& host = HostCallbacks::Get();
};

TEST_F(HeldModule, UnloadWhileTheCameraIsOpenTakesEffectWhenItIsClosed) {
  QueryAndOpen();
  DeliverAndReceive(1);
  library.Unload();
  EXPECT_TRUE(library.IsMapped());
  DeliverAndReceive(2);
  EXPECT_EQ(platform.CallCount("IMediaControl::Stop"), 0U);
  EXPECT_EQ(Close(), 1);
  EXPECT_TRUE(IsUnloadedInTheEnd());
  EXPECT_THAT(platform.Alive(), ElementsAre("current media type"));
}

TEST_F(HeldModule, LibraryWithTheCameraClosedUnloadsAtOnce) {
  QueryAndOpen();
  DeliverAndReceive(1);
  EXPECT_EQ(Close(), 1);
  EXPECT_TRUE(library.IsMapped());
  library.Unload();
  EXPECT_FALSE(library.IsMapped());
}

TEST_F(HeldModule, LibraryThatNeverOpenedUnloadsAtOnce) {
  EXPECT_EQ(Close(), 0);
  library.Unload();
  EXPECT_FALSE(library.IsMapped());
}

TEST_F(HeldModule, LibraryThatIsLoadedAgainWhileHeldIsTheSameOneAndUnloadsOnceItIsClosed) {
  QueryAndOpen();
  library.Unload();
  LoadedLibrary again(NUVEQ_LIBRARY_FILE);
  NUVEQCameraHandler sameHandler{};
  ASSERT_EQ(again.GetCameraHandler(&sameHandler), 0);
  EXPECT_EQ(sameHandler.CloseCameraDevice, handler.CloseCameraDevice);
  const NUVEQCameraParam param{"0", 1, 640, 480, 30};
  EXPECT_EQ(sameHandler.OpenCameraDevice(&param), -4);
  DeliverAndReceive(1);
  EXPECT_EQ(sameHandler.CloseCameraDevice("0", 1), 1);
  // The host's own hold is one that counts.
  EXPECT_TRUE(again.IsMapped());
  again.Unload();
  EXPECT_FALSE(again.IsMapped());
}

TEST_F(HeldModule, HoldIsOnePerOpenAndGivenBackByEveryClose) {
  constexpr int kRounds = 50;
  for (int round = 0; round < kRounds; ++round) {
    ASSERT_NO_FATAL_FAILURE(QueryAndOpen());
    ASSERT_EQ(Close(), 1);
  }
  library.Unload();
  EXPECT_FALSE(library.IsMapped());
}

TEST_F(HeldModule, UnloadsAndLoadsAgainWithFramesFlowing) {
  platform.SetStreaming({true, [](std::uint64_t) { return Frame(kFrameSize, 1); }});
  platform.SetRecording(false);
  host.KeepPackets(false);
  library.Unload();
  constexpr int kRounds = 3;
  for (int round = 0; round < kRounds; ++round) {
    LoadedLibrary loaded(NUVEQ_LIBRARY_FILE);
    ASSERT_EQ(loaded.GetCameraHandler(&handler), 0);
    ASSERT_EQ(handler.RegisterSendDataCallback(nullptr, 0, &HostCallbacks::OnData), 0);
    ASSERT_NO_FATAL_FAILURE(QueryAndOpen());
    loaded.Unload();
    ASSERT_TRUE(host.WaitForPackets(host.PacketCount() + 5));
    ASSERT_EQ(Close(), 1);
    ASSERT_TRUE(IsUnloadedInTheEnd());
  }
}

TEST_F(HeldModule, UnloadsAfterEveryBufferWasLost) {
  platform.SetStreaming({true, [](std::uint64_t) { return Frame(kFrameSize + 1, 1); }});
  QueryAndOpen();
  ASSERT_TRUE(WaitUntil([&] { return platform.DeliveredFrames() == 5; }));
  library.Unload();
  EXPECT_TRUE(library.IsMapped());
  EXPECT_EQ(Close(), 1);
  EXPECT_TRUE(IsUnloadedInTheEnd());
}

// --- The end of the process ---

class HeldAtTheEnd : public HeldModule {
 protected:
  static constexpr int kLeftAlone = 3;
  static constexpr int kTornDown = 4;
  static constexpr int kNeverOpened = 5;

  // The code is kTornDown if the library makes any call of its teardown on the way.
  void OpenAndExit(bool unload) {
    platform.SetStreaming({true, [](std::uint64_t) {
                             std::this_thread::sleep_for(std::chrono::milliseconds(1));
                             return Frame(kFrameSize, 1);
                           }});
    // The program's objects go while packets still arrive, so the callback uses none.
    static std::atomic<unsigned> packets;
    handler.RegisterSendDataCallback(
        nullptr, 0,
        [](const char*, std::uint32_t, const std::uint8_t*, std::uint32_t, std::int32_t) -> std::int32_t {
          ++packets;
          return 0;
        });
    QueryAndOpen();
    // The thread library takes a lock of the whole process when a condition is waited on for the first time.
    // A thread that ends in there leaves it locked, and no process can then end: that is long past.
    constexpr unsigned kWellUnderWay = 50;
    if (!WaitUntil([] { return packets >= kWellUnderWay; })) {
      std::_Exit(kNeverOpened);
    }
    if (unload) {
      library.Unload();
    }
    for (const char* call : {"IMediaControl::Stop", "VideoEncoder::ReleaseEncoder", "CoUninitialize"}) {
      platform.Before(call, [] { std::_Exit(kTornDown); });
    }
    std::exit(kLeftAlone);  // NOLINT(concurrency-mt-unsafe): how an exit meets a thread is the matter
  }
};

TEST_F(HeldAtTheEnd, ProcessEndsWithTheCameraOpenAndFramesFlowing) {
  EXPECT_EXIT(OpenAndExit(false), ::testing::ExitedWithCode(kLeftAlone), "");
}

TEST_F(HeldAtTheEnd, ProcessEndsWithAnUnloadPending) {
  EXPECT_EXIT(OpenAndExit(true), ::testing::ExitedWithCode(kLeftAlone), "");
}

TEST_F(HeldAtTheEnd, ProcessMayEndFromInsideTheDataCallback) {
  const auto endInTheCallback = [&] {
    host.InData([](const Packet&) {
      std::exit(kLeftAlone);  // NOLINT(concurrency-mt-unsafe): what a host should not do, and may
    });
    QueryAndOpen();
    platform.DeliverFrame(Frame(kFrameSize, 1));
    WaitUntil([] { return false; });
  };
  EXPECT_EXIT(endInTheCallback(), ::testing::ExitedWithCode(kLeftAlone), "");
}

}  // namespace
