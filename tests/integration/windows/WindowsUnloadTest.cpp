// Unloading the DLL and exiting the process in every state of the camera.
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

using ::testing::Contains;
using ::testing::HasSubstr;

// A loaded DLL of the fixtures.
class FixtureLibrary {
 public:
  explicit FixtureLibrary(const std::string& fileName)
      : m_module(LoadLibraryW((ProgramFolder() / NUVEQ_FIXTURES / fileName).lexically_normal().c_str())) {}
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
  static std::filesystem::path ProgramFolder() {
    std::array<wchar_t, 4096> name{};
    return std::filesystem::path(name.data(),
                                 name.data() + GetModuleFileNameW(nullptr, name.data(), name.size()))
        .parent_path();
  }

  HMODULE m_module;
};

using LibraryUnload = WindowsCameraTest;

TEST_F(LibraryUnload, UnmapsAtOnceIfNeverUsed) {
  Unload();
  EXPECT_FALSE(IsMapped());
}

TEST_F(LibraryUnload, UnmapsAtOnceAfterAQuery) {
  ASSERT_EQ(Query(), 0);
  Unload();
  EXPECT_FALSE(IsMapped());
}

TEST_F(LibraryUnload, UnmapsAtOnceAfterClose) {
  ASSERT_NO_FATAL_FAILURE(Record(640, 480, 30, 5));
  Unload();
  EXPECT_FALSE(IsMapped());
}

// A graph cannot be destroyed during the unload: it waits for threads that need the loader lock.
TEST_F(LibraryUnload, StaysMappedAfterAFailedOpenUntilClose) {
  ASSERT_EQ(Query(), 0);
  ASSERT_EQ(Open(800, 600), NUVEQ_CAMERA_GRAPH_FAILED);
  Unload();
  EXPECT_TRUE(IsMapped());
  Close();
  EXPECT_TRUE(WaitFor([&] { return !IsMapped(); }));
}

// This close joins no encoder thread and therefore does not wait for the pin to be dropped.
TEST_F(LibraryUnload, UnmapsSoonAfterAFailedOpenIsClosed) {
  ASSERT_EQ(Query(), 0);
  ASSERT_EQ(Open(800, 600), NUVEQ_CAMERA_GRAPH_FAILED);
  Close();
  Unload();
  EXPECT_TRUE(WaitFor([&] { return !IsMapped(); }));
}

TEST_F(LibraryUnload, StaysMappedAndStreamsWhileTheCameraIsOpen) {
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

TEST_F(LibraryUnload, ReloadedLibraryClosesTheCamera) {
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

TEST_F(LibraryUnload, UnmapsAtOnceInEveryRound) {
  for (int round = 0; round < 10; ++round) {
    ASSERT_NO_FATAL_FAILURE(Record(320, 240, 30, 2));
    Unload();
    ASSERT_FALSE(IsMapped());
    EXPECT_EQ(fixtures::LiveObjects(), 0);
    ASSERT_NO_FATAL_FAILURE(Load());
  }
}

// --- Failed opens that a close cannot undo ---

class OpenWithoutCom : public WindowsCameraTest {
 protected:
  // Without COM, an open creates the frame pool but no graph. Close only cleans up if there is a graph, so
  // every later open fails.
  void OpenAndCloseWithoutCom(std::uint32_t width = 640, std::uint32_t height = 480) {
    ASSERT_EQ(Query(), 0);
    log.Clear();
    std::thread([&] { EXPECT_EQ(Open(width, height), NUVEQ_CAMERA_GRAPH_FAILED); }).join();
    EXPECT_THAT(log.Lines(), Contains(HasSubstr(std::to_string(CO_E_NOTINITIALIZED))));
    EXPECT_EQ(Close(), 0) << "there is no graph";
    EXPECT_EQ(Open(width, height), NUVEQ_CAMERA_ENCODER_FAILED) << "the frame pool exists already";
    EXPECT_EQ(Close(), 0);
  }

  void ReloadAndRecord() {
    Unload();
    ASSERT_FALSE(IsMapped());
    ASSERT_NO_FATAL_FAILURE(Load());
    ASSERT_NO_FATAL_FAILURE(Record(640, 480, 30, 10));
    Unload();
    EXPECT_FALSE(IsMapped());
  }
};

TEST_F(OpenWithoutCom, FailsUntilTheLibraryIsReloaded) {
  ASSERT_NO_FATAL_FAILURE(OpenAndCloseWithoutCom());
  ReloadAndRecord();
}

TEST_F(OpenWithoutCom, RecoversWithEveryReload) {
  for (int round = 0; round < 10; ++round) {
    ASSERT_NO_FATAL_FAILURE(OpenAndCloseWithoutCom(1280, 720));
    ASSERT_NO_FATAL_FAILURE(ReloadAndRecord());
    ASSERT_NO_FATAL_FAILURE(Load());
  }
}

// With the fixtures' encoder library.
class OpenWithTestEncoder : public OpenWithoutCom {
 protected:
  void SetUp() override {
    OpenWithoutCom::SetUp();
    Unload();
    // The reloaded library uses the DLL of this name that is loaded already.
    ASSERT_TRUE(encoder.IsLoaded());
    ASSERT_NO_FATAL_FAILURE(Load());
  }

  // Limits the number of frame buffers that can still be allocated, including those of the encoder.
  void LimitFrames(int count) { encoder.Find<void(int)>("LimitFrames")(count); }
  void RemoveLimit() { LimitFrames(-1); }

  FixtureLibrary encoder{"encoder/MultiMediaEncoder.dll"};
};

// Slice threads could not be joined during the unload. They must not exist before the first frame.
TEST_F(OpenWithTestEncoder, UnloadsAnEncoderWithSliceThreadsBeforeTheFirstFrame) {
  ASSERT_NO_FATAL_FAILURE(OpenAndCloseWithoutCom());
  ReloadAndRecord();
}

TEST_F(OpenWithTestEncoder, RecoversFromAFailedFramePoolAllocation) {
  ASSERT_EQ(Query(), 0);
  LimitFrames(3);
  EXPECT_EQ(Open(), NUVEQ_CAMERA_ENCODER_FAILED);
  EXPECT_THAT(log.Lines(), Contains(HasSubstr("InitVideoEncoder")));
  EXPECT_EQ(Close(), 0) << "there is no graph";
  RemoveLimit();
  ASSERT_NO_FATAL_FAILURE(Record(640, 480, 30, 10));
  LimitFrames(3);
  EXPECT_EQ(Open(), NUVEQ_CAMERA_ENCODER_FAILED);
  RemoveLimit();
  ReloadAndRecord();
}

// --- A host that holds the loader lock ---

// There is no encoder thread to join, so the library does not need the lock.
TEST_F(LibraryUnload, FailedOpenCanBeClosedFromDllMain) {
  // Wine joins one of its threads when a process destroys its last graph; a second graph prevents that.
  ComPtr<IGraphBuilder> otherGraph;
  ASSERT_EQ(CoCreateInstance(CLSID_FilterGraph, nullptr, CLSCTX_INPROC_SERVER, IID_IGraphBuilder,
                             otherGraph.PutVoid()),
            S_OK);
  ASSERT_EQ(Query(), 0);
  ASSERT_EQ(Open(800, 600), NUVEQ_CAMERA_GRAPH_FAILED);
  constexpr std::int32_t kNotCalled = -1;
  std::int32_t result = kNotCalled;
  FixtureLibrary closingHost("closinghost.dll");
  ASSERT_TRUE(closingHost.IsLoaded());
  using CloseFunction = decltype(handler.CloseCameraDevice);
  closingHost.Find<void(CloseFunction, std::int32_t*)>("CloseOnUnload")(handler.CloseCameraDevice, &result);
  closingHost.Unload();
  EXPECT_NE(result, kNotCalled);
  EXPECT_THAT(reports, ::testing::Contains("status callback \"0\" 1 3"));
  ASSERT_NO_FATAL_FAILURE(Record(640, 480, 30, 10));
  Unload();
  EXPECT_TRUE(WaitFor([&] { return !IsMapped(); }));
}

// --- Process exit ---

// Exit codes that neither a crash nor a normal exit uses.
constexpr int kExitedAsExpected = 42;
constexpr int kOpenFailed = 43;

class ProcessExit : public WindowsCameraTest {
 protected:
  void SetUp() override {
    // Each exit runs in a child process, which repeats the test from its start.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    WindowsCameraTest::SetUp();
  }

  // If the camera does not stream, writes diagnostics, which gtest shows, and exits with kOpenFailed.
  void QueryAndOpen() {
    const int query = Query();
    const int open = query == 0 ? Open() : -1;
    if (open == 0 && host.WaitForPackets(3)) {
      return;
    }
    std::cerr << "query: " << query << ", open: " << open << ", packets: " << host.PacketCount() << '\n';
    for (const std::string& line : log.Lines()) {
      std::cerr << line << '\n';
    }
    std::_Exit(kOpenFailed);
  }
};

TEST_F(ProcessExit, ExitSucceedsWhileTheCameraIsOpen) {
  EXPECT_EXIT(
      {
        QueryAndOpen();
        std::exit(kExitedAsExpected);  // NOLINT(concurrency-mt-unsafe): the test exits while threads run
      },
      ::testing::ExitedWithCode(kExitedAsExpected), "");
}

TEST_F(ProcessExit, ExitProcessSucceedsWhileTheCameraIsOpen) {
  EXPECT_EXIT(
      {
        QueryAndOpen();
        ExitProcess(kExitedAsExpected);
      },
      ::testing::ExitedWithCode(kExitedAsExpected), "");
}

TEST_F(ProcessExit, SucceedsAfterUnloadWhileTheCameraIsOpen) {
  EXPECT_EXIT(
      {
        QueryAndOpen();
        Unload();
        std::exit(kExitedAsExpected);  // NOLINT(concurrency-mt-unsafe): the test exits while threads run
      },
      ::testing::ExitedWithCode(kExitedAsExpected), "");
}

TEST_F(ProcessExit, SucceedsWhileTheCameraWaitsForABuffer) {
  EXPECT_EXIT(
      {
        Gate never;
        host.InData([&](const Packet&) { never.Wait(); });
        if (Query() == 0 && Open() == 0 &&
            WaitFor([] { return fixtures::DeliveredFrames() >= kBlockedFrame; })) {
          std::exit(kExitedAsExpected);  // NOLINT(concurrency-mt-unsafe): the test exits while threads run
        }
      },
      ::testing::ExitedWithCode(kExitedAsExpected), "");
}

TEST_F(ProcessExit, SucceedsInsideTheDataCallback) {
  EXPECT_EXIT(
      {
        if (Query() == 0) {
          host.InData([](const Packet&) {
            std::exit(kExitedAsExpected);  // NOLINT(concurrency-mt-unsafe): hosts may do this
          });
          Open();
          Gate never;
          never.Wait();
        }
      },
      ::testing::ExitedWithCode(kExitedAsExpected), "");
}

TEST_F(ProcessExit, SucceedsAfterAFailedOpen) {
  EXPECT_EXIT(
      {
        if (Query() == 0 && Open(800, 600) == NUVEQ_CAMERA_GRAPH_FAILED) {
          std::exit(kExitedAsExpected);  // NOLINT(concurrency-mt-unsafe): the test exits while threads run
        }
      },
      ::testing::ExitedWithCode(kExitedAsExpected), "");
}

TEST_F(ProcessExit, SucceedsAfterClose) {
  EXPECT_EXIT(
      {
        QueryAndOpen();
        Close();
        std::exit(kExitedAsExpected);  // NOLINT(concurrency-mt-unsafe): the test exits while threads run
      },
      ::testing::ExitedWithCode(kExitedAsExpected), "");
}

TEST_F(ProcessExit, SucceedsAfterAQuery) {
  EXPECT_EXIT(
      {
        if (Query() == 0) {
          std::exit(kExitedAsExpected);  // NOLINT(concurrency-mt-unsafe): the test exits while threads run
        }
      },
      ::testing::ExitedWithCode(kExitedAsExpected), "");
}

}  // namespace
