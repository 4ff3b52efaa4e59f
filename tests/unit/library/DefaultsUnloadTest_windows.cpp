// Unloading on Windows: a thread cannot be joined during an unload, so an unload takes effect when the camera
// is closed. The end of the process does not wait.
#include <windows.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <stdexcept>
#include <thread>

#include "DefaultsTest.h"
#include "support/HostCallbacks.h"

namespace {

using support::Frame;
using support::Gate;
using support::HostCallbacks;
using support::kFrameSize;
using support::LoadedLibrary;
using support::Packet;
using support::WaitFor;
using ::testing::ElementsAre;

// Holds the loader lock, as the system does during every DllMain.
class LoaderLock {
 public:
  LoaderLock() {
    const HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
    m_unlock = Find<Unlock>(ntdll, "LdrUnlockLoaderLock");
    EXPECT_EQ(Find<Lock>(ntdll, "LdrLockLoaderLock")(0, nullptr, &m_cookie), 0);
  }
  LoaderLock(const LoaderLock&) = delete;
  LoaderLock& operator=(const LoaderLock&) = delete;
  ~LoaderLock() { m_unlock(0, m_cookie); }

 private:
  using Lock = LONG(WINAPI*)(ULONG flags, ULONG* disposition, ULONG_PTR* cookie);
  using Unlock = LONG(WINAPI*)(ULONG flags, ULONG_PTR cookie);

  template <typename Function>
  static Function Find(HMODULE module, const char* name) {
    return reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module, name)));
  }

  Unlock m_unlock = nullptr;
  ULONG_PTR m_cookie = 0;
};

class PinnedModule : public Defaults {
 protected:
  void SetUp() override {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    Defaults::SetUp();
    host.Reset();
    ASSERT_NO_FATAL_FAILURE(RegisterCallbacks());
  }

  void TearDown() override {
    if (HasFailure() && library.IsMapped()) {
      // A camera that a failed test has left open would keep the module loaded.
      Close();
    }
    Defaults::TearDown();
    EXPECT_TRUE(IsUnloadedInTheEnd());
    EXPECT_EQ(platform.CallCount("CoInitialize"), platform.CallCount("CoUninitialize"));
    host.Reset();
  }

  void RegisterCallbacks() const {
    ASSERT_EQ(handler.RegisterSendDataCallback(nullptr, 0, &HostCallbacks::OnData), 0);
    const NUVEQServiceListener listener{&HostCallbacks::OnStatus, nullptr};
    ASSERT_EQ(handler.RegisterServiceListener(&listener), 0);
  }

  // Loads the library and opens the camera, calls closeAndUnload and waits until the library is unloaded.
  void RepeatSessions(int rounds, const std::function<void(LoadedLibrary&)>& closeAndUnload) {
    platform.SetRecording(false);
    host.KeepPackets(false);
    library.Unload();
    for (int round = 0; round < rounds; ++round) {
      LoadedLibrary loaded(NUVEQ_LIBRARY_FILE);
      ASSERT_EQ(loaded.GetCameraHandler(&handler), 0);
      ASSERT_NO_FATAL_FAILURE(RegisterCallbacks());
      ASSERT_NO_FATAL_FAILURE(QueryAndOpen());
      closeAndUnload(loaded);
      ASSERT_TRUE(IsUnloadedInTheEnd());
    }
  }

  // A separate thread releases the pin.
  bool IsUnloadedInTheEnd() const {
    return WaitFor([&] { return !library.IsMapped(); });
  }

  void DeliverAndReceive(std::uint8_t value) {
    const std::uint64_t packets = host.PacketCount();
    ASSERT_TRUE(platform.DeliverFrame(Frame(kFrameSize, value)));
    ASSERT_TRUE(host.WaitForPackets(packets + 1));
    EXPECT_EQ(host.Packets().back().bytes.at(0), value);
  }

  HostCallbacks& host = HostCallbacks::Get();
};

TEST_F(PinnedModule, UnloadWhileOpenTakesEffectAtClose) {
  QueryAndOpen();
  DeliverAndReceive(1);
  library.Unload();
  EXPECT_TRUE(library.IsMapped());
  DeliverAndReceive(2);
  EXPECT_EQ(platform.CallCount("IMediaControl::Stop"), 0U);
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  EXPECT_TRUE(IsUnloadedInTheEnd());
  EXPECT_THAT(platform.Alive(), ElementsAre("current media type"));
}

TEST_F(PinnedModule, UnloadWithoutOpenIsImmediate) {
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSE_INCOMPLETE);
  library.Unload();
  EXPECT_FALSE(library.IsMapped());
}

TEST_F(PinnedModule, ReloadWhilePinnedReturnsTheSameModule) {
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
  // The host's reference keeps the module loaded.
  EXPECT_TRUE(again.IsMapped());
  again.Unload();
  EXPECT_FALSE(again.IsMapped());
}

TEST_F(PinnedModule, EveryCloseReleasesThePinOfItsOpen) {
  constexpr int kRounds = 50;
  for (int round = 0; round < kRounds; ++round) {
    ASSERT_NO_FATAL_FAILURE(QueryAndOpen());
    ASSERT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  }
  EXPECT_TRUE(library.IsMapped());
  library.Unload();
  EXPECT_FALSE(library.IsMapped());
}

TEST_F(PinnedModule, UnloadsAndReloadsWhileStreaming) {
  platform.SetStreaming({true, [](std::uint64_t) { return Frame(kFrameSize, 1); }});
  RepeatSessions(3, [&](LoadedLibrary& loaded) {
    loaded.Unload();
    EXPECT_TRUE(host.WaitForPackets(host.PacketCount() + 5));
    EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  });
}

TEST_F(PinnedModule, UnloadsAfterAllBuffersWereLost) {
  platform.SetStreaming({true, [](std::uint64_t) { return Frame(kFrameSize + 1, 1); }});
  QueryAndOpen();
  ASSERT_TRUE(WaitFor([&] { return platform.DeliveredFrames() == 5; }));
  library.Unload();
  EXPECT_TRUE(library.IsMapped());
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  EXPECT_TRUE(IsUnloadedInTheEnd());
}

// --- The pin is the last reference while the closing thread is still in the library ---

TEST_F(PinnedModule, ClosingThreadLeavesBeforeTheLibraryIsUnmapped) {
  RepeatSessions(20, [&](LoadedLibrary& loaded) {
    loaded.Unload();
    EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  });
}

TEST_F(PinnedModule, ClosingThreadThatEndsLeavesBeforeTheLibraryIsUnmapped) {
  RepeatSessions(20, [&](LoadedLibrary& loaded) {
    loaded.Unload();
    std::thread([&] { EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED); }).join();
  });
}

// Another thread of the host unloads the library while the close is returning.
TEST_F(PinnedModule, ClosingThreadLeavesBeforeUnloadByAnotherThread) {
  RepeatSessions(40, [&](LoadedLibrary& loaded) {
    Gate closing;
    host.InStatus([&](int status) {
      if (status == NUVEQ_SERVICE_STATUS_CAMERA_CLOSED) {
        closing.Open();
      }
    });
    std::thread unloader([&] {
      closing.Wait();
      loaded.Unload();
    });
    EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
    unloader.join();
    host.InStatus(nullptr);
  });
}

TEST_F(PinnedModule, ClosingThreadOfLowestPriorityLeaves) {
  RepeatSessions(3, [&](LoadedLibrary& loaded) {
    loaded.Unload();
    std::thread([&] {
      EXPECT_TRUE(SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_IDLE));
      EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
    }).join();
  });
}

// When the nested close returns, the open is still in the library.
TEST_F(PinnedModule, CloseInsideTheReportOfAnOpenWaitsUntilTheOpenHasLeft) {
  ExpectLeft("current media type");
  ASSERT_NO_FATAL_FAILURE(Query());
  host.InStatus([&](int status) {
    if (status == NUVEQ_SERVICE_STATUS_CAMERA_OPEN) {
      library.Unload();
      EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
      EXPECT_TRUE(library.IsMapped());
    }
  });
  EXPECT_EQ(Open(), NUVEQ_CAMERA_GRAPH_FAILED);
  EXPECT_TRUE(IsUnloadedInTheEnd());
}

TEST_F(PinnedModule, ThrowingCloseLeavesBeforeTheLibraryIsUnmapped) {
  QueryAndOpen();
  library.Unload();
  host.InStatus([](int) { throw std::runtime_error("host"); });
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSE_INCOMPLETE);
  EXPECT_TRUE(IsUnloadedInTheEnd());
}

// --- The loader lock ---

TEST_F(PinnedModule, CloseWithoutEncoderThreadDoesNotNeedTheLoaderLock) {
  ASSERT_NO_FATAL_FAILURE(Query());
  platform.AnswersNth("IFilterGraph::AddFilter", 1, scripted::Fails());
  ASSERT_EQ(Open(), NUVEQ_CAMERA_GRAPH_FAILED);
  {
    const LoaderLock lock;
    EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  }
  library.Unload();
  EXPECT_TRUE(IsUnloadedInTheEnd());
}

// --- The end of the process ---

class PinnedModuleAtExit : public PinnedModule {
 protected:
  static constexpr int kLeftAlone = 3;
  static constexpr int kTornDown = 4;
  static constexpr int kNeverOpened = 5;

  // Exits with kTornDown if the library calls any function of its teardown.
  void OpenAndExit(bool unload) {
    platform.SetStreaming({true, [](std::uint64_t) {
                             std::this_thread::sleep_for(std::chrono::milliseconds(1));
                             return Frame(kFrameSize, 1);
                           }});
    // Static objects are destroyed while packets still arrive, so the callback uses none.
    static std::atomic<unsigned> packets;
    handler.RegisterSendDataCallback(
        nullptr, 0,
        [](const char*, std::uint32_t, const std::uint8_t*, std::uint32_t, std::int32_t) -> std::int32_t {
          ++packets;
          return 0;
        });
    QueryAndOpen();
    // winpthreads takes a process-wide lock at the first wait on a condition variable. A thread that is
    // killed there would leave it locked; the wait for packets ensures that this has passed.
    constexpr unsigned kWellUnderWay = 50;
    if (!WaitFor([] { return packets >= kWellUnderWay; })) {
      std::_Exit(kNeverOpened);
    }
    if (unload) {
      library.Unload();
    }
    for (const char* call : {"IMediaControl::Stop", "VideoEncoder::ReleaseEncoder", "CoUninitialize"}) {
      platform.Before(call, [] { std::_Exit(kTornDown); });
    }
    std::exit(kLeftAlone);  // NOLINT(concurrency-mt-unsafe): under test
  }
};

TEST_F(PinnedModuleAtExit, ProcessEndsWhileStreaming) {
  EXPECT_EXIT(OpenAndExit(false), ::testing::ExitedWithCode(kLeftAlone), "");
}

TEST_F(PinnedModuleAtExit, ProcessEndsWithPendingUnload) {
  EXPECT_EXIT(OpenAndExit(true), ::testing::ExitedWithCode(kLeftAlone), "");
}

TEST_F(PinnedModuleAtExit, ExitInsideTheDataCallbackSucceeds) {
  const auto endInTheCallback = [&] {
    host.InData([](const Packet&) {
      std::exit(kLeftAlone);  // NOLINT(concurrency-mt-unsafe): under test
    });
    QueryAndOpen();
    platform.DeliverFrame(Frame(kFrameSize, 1));
    WaitFor([] { return false; });
  };
  EXPECT_EXIT(endInTheCallback(), ::testing::ExitedWithCode(kLeftAlone), "");
}

}  // namespace
