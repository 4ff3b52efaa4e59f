// Unloading the DLL and ending its process in every state of the camera.
#include <windows.h>

#include <dshow.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>
#include <thread>

#include "WindowsCameraTest.h"
#include "com/ComPtr.h"

namespace {

// A DLL of the fixtures.
class FixtureLibrary {
 public:
  explicit FixtureLibrary(const std::string& fileName)
      : m_module(
            LoadLibraryW((FolderOfThisProgram() / NUVEQ_FIXTURES / fileName).lexically_normal().c_str())) {}
  FixtureLibrary(const FixtureLibrary&) = delete;
  FixtureLibrary& operator=(const FixtureLibrary&) = delete;
  ~FixtureLibrary() { Unload(); }

  bool IsLoaded() const { return m_module != nullptr; }
  void Unload() {
    if (m_module != nullptr) {
      FreeLibrary(std::exchange(m_module, nullptr));
    }
  }
  template <typename Function>
  Function* Find(const char* name) const {
    return reinterpret_cast<Function*>(reinterpret_cast<void*>(GetProcAddress(m_module, name)));
  }

 private:
  static std::filesystem::path FolderOfThisProgram() {
    std::array<wchar_t, 4096> name{};
    return std::filesystem::path(name.data(),
                                 name.data() + GetModuleFileNameW(nullptr, name.data(), name.size()))
        .parent_path();
  }

  HMODULE m_module;
};

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

// That close joins no thread, so it does not wait for the one that drops the pin either.
TEST_F(Unloading, ClosedAfterAFailedOpenGoesSoonAfter) {
  ASSERT_EQ(Query(), 0);
  ASSERT_EQ(Open(800, 600), NUVEQ_CAMERA_GRAPH_FAILED);
  Close();
  Unload();
  EXPECT_TRUE(WaitFor([&] { return !IsMapped(); }));
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

// --- Opens that leave nothing for a close to work on ---

class DeadEnd : public WindowsCameraTest {
 protected:
  // No graph can be made on a thread without COM.
  void OpenOnAThreadWithoutCom(std::uint32_t width = 640, std::uint32_t height = 480) {
    ASSERT_EQ(Query(), 0);
    log.Forget();
    std::thread([&] { EXPECT_EQ(Open(width, height), NUVEQ_CAMERA_GRAPH_FAILED); }).join();
    EXPECT_THAT(log.Get(),
                ::testing::Contains("ERROR CameraOperator:0 [CameraOperator]CoCreateInstance fail, "
                                    "error: -2147221008(CameraOperator::InitCameraBasicInfo)"));
    EXPECT_EQ(Close(), 0) << "there is no graph to work on";
    EXPECT_EQ(Open(width, height), NUVEQ_CAMERA_ENCODER_FAILED) << "the frame pool is there already";
    EXPECT_EQ(Close(), 0);
  }

  void UnloadLoadAndRecord() {
    Unload();
    ASSERT_FALSE(IsMapped());
    ASSERT_NO_FATAL_FAILURE(Load());
    ASSERT_NO_FATAL_FAILURE(Record(640, 480, 30, 10));
    Unload();
    EXPECT_FALSE(IsMapped());
  }
};

TEST_F(DeadEnd, OfAnOpenOnAThreadWithoutComEndsWhenTheLibraryIsLoadedAnew) {
  ASSERT_NO_FATAL_FAILURE(OpenOnAThreadWithoutCom());
  UnloadLoadAndRecord();
}

TEST_F(DeadEnd, MayBeReachedOverAndOver) {
  for (int round = 0; round < 10; ++round) {
    ASSERT_NO_FATAL_FAILURE(OpenOnAThreadWithoutCom(1280, 720));
    ASSERT_NO_FATAL_FAILURE(UnloadLoadAndRecord());
    ASSERT_NO_FATAL_FAILURE(Load());
  }
}

// The same with the fixtures' encoder library.
class DeadEndOfTheTestEncoder : public DeadEnd {
 protected:
  void SetUp() override {
    DeadEnd::SetUp();
    Unload();
    // The system gives a DLL that is loaded already to whoever asks for one of that name.
    ASSERT_TRUE(encoder.IsLoaded());
    ASSERT_NO_FATAL_FAILURE(Load());
  }

  // There is memory for that many frames, the encoder's own included.
  void LimitFrames(int count) { encoder.Find<void(int)>("LimitFrames")(count); }
  void LiftLimit() { LimitFrames(-1); }

  FixtureLibrary encoder{"encoder/MultiMediaEncoder.dll"};
};

// Releasing an encoder that has threads joins them, which is impossible while a DLL is being unloaded.
TEST_F(DeadEndOfTheTestEncoder, HasNoSliceThreadsToJoin) {
  ASSERT_NO_FATAL_FAILURE(OpenOnAThreadWithoutCom());
  UnloadLoadAndRecord();
}

TEST_F(DeadEndOfTheTestEncoder, OfAFramePoolWithoutMemoryIsNone) {
  ASSERT_EQ(Query(), 0);
  LimitFrames(3);
  log.Forget();
  EXPECT_EQ(Open(), NUVEQ_CAMERA_ENCODER_FAILED);
  EXPECT_THAT(log.Get(), ::testing::Contains("ERROR CameraOperator:546 [CameraOperator]AllocBuffer fail."
                                             "(CameraOperator::InitVideoEncoder)"));
  EXPECT_EQ(Close(), 0) << "there is no graph to work on";
  LiftLimit();
  ASSERT_NO_FATAL_FAILURE(Record(640, 480, 30, 10));
  LimitFrames(3);
  EXPECT_EQ(Open(), NUVEQ_CAMERA_ENCODER_FAILED);
  LiftLimit();
  UnloadLoadAndRecord();
}

// --- A host that holds the loader lock ---

// There is no encoder thread to join, so nothing in the library needs the lock.
TEST_F(Unloading, AFailedOpenMayBeClosedFromDllMain) {
  // Wine ends a thread of its own, and waits for it, with the last graph of the process: another one is kept.
  ComPtr<IGraphBuilder> another;
  ASSERT_EQ(CoCreateInstance(CLSID_FilterGraph, nullptr, CLSCTX_INPROC_SERVER, IID_IGraphBuilder,
                             another.PutVoid()),
            S_OK);
  ASSERT_EQ(Query(), 0);
  ASSERT_EQ(Open(800, 600), NUVEQ_CAMERA_GRAPH_FAILED);
  constexpr std::int32_t kNotCalled = -1;
  std::int32_t result = kNotCalled;
  FixtureLibrary closingHost("closinghost.dll");
  ASSERT_TRUE(closingHost.IsLoaded());
  closingHost.Find<void(std::int32_t(*)(const char*, std::uint32_t), std::int32_t*)>("CloseOnUnload")(
      handler.CloseCameraDevice, &result);
  closingHost.Unload();
  EXPECT_NE(result, kNotCalled);
  EXPECT_THAT(reports, ::testing::Contains("status callback \"0\" 1 3"));
  ASSERT_NO_FATAL_FAILURE(Record(640, 480, 30, 10));
  Unload();
  EXPECT_TRUE(WaitFor([&] { return !IsMapped(); }));
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
