// No exception leaves the library: each table function returns its failure, and the library keeps working.
#include <stdexcept>

#include "support/CameraHandlerTest.h"
#include "support/ThreadCreationFailure.h"

namespace {

using support::CameraHandlerTest;
using support::Frame;
using support::HostCallbacks;
using support::kFrameSize;
using support::LoadedLibrary;
using support::ThreadCreationFailure;
using support::WaitFor;

using Boundary = CameraHandlerTest;
using scripted::BuiltInCamera;
using scripted::Camera;
using scripted::kBuiltInId;
using scripted::LaptopPc;
using scripted::PlugInCamera;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

// A device whose name is invalid UTF-16: an unpaired surrogate.
Camera BrokenCamera() { return {"broken", std::wstring(1, wchar_t{0xD800}), {}}; }

TEST_F(Boundary, InvalidUnicodeNameFailsTheQueryWithoutLogging) {
  platform.SetPc({{{0, kBuiltInId}}, {BrokenCamera(), BuiltInCamera({})}});
  EXPECT_EQ(Query(), NUVEQ_CAMERA_NOT_USABLE);
  EXPECT_THAT(LogLines(), IsEmpty());
  EXPECT_THAT(platform.Alive(), IsEmpty());
  platform.SetPc(LaptopPc());
  EXPECT_EQ(Query(), 0);
}

TEST_F(Boundary, InvalidUnicodeNameFailsTheOpenUntilClose) {
  QueryAndRelease();
  platform.SetPc({{}, {BrokenCamera()}});
  EXPECT_EQ(Open(), NUVEQ_CAMERA_GRAPH_FAILED);
  EXPECT_THAT(LogLines(), Not(Contains(HasSubstr("fail"))));
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  platform.SetPc(LaptopPc());
  ExpectFormatLeft();
  EXPECT_EQ(Open(), 0);
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
}

TEST_F(Boundary, ThrowingStatusCallbackFailsTheOpenUntilClose) {
  QueryAndRelease();
  ExpectFormatLeft(2);
  host.InStatus([](int) { throw std::runtime_error("host"); });
  EXPECT_EQ(Open(), NUVEQ_CAMERA_GRAPH_FAILED);
  host.InStatus(nullptr);
  EXPECT_EQ(Open(), NUVEQ_CAMERA_ALREADY_OPEN) << "the graph was built";
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  EXPECT_EQ(Open(), 0);
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
}

TEST_F(Boundary, ThrowingStatusCallbackMakesCloseReturnZeroAfterClosing) {
  QueryAndOpen();
  host.InStatus([](int) { throw std::runtime_error("host"); });
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSE_INCOMPLETE);
  EXPECT_THAT(platform.Alive(), ::testing::ElementsAre("current media type"));
  host.InStatus(nullptr);
  ExpectFormatLeft();
  EXPECT_EQ(Open(), 0);
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
}

TEST_F(Boundary, CloseInsideTheReportOfAnOpenFailsTheOpen) {
  QueryAndRelease();
  ExpectFormatLeft(2);
  host.InStatus([&](int status) {
    if (status == NUVEQ_SERVICE_STATUS_CAMERA_OPEN) {
      EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
    }
  });
  EXPECT_EQ(Open(), NUVEQ_CAMERA_GRAPH_FAILED);
  EXPECT_EQ(platform.CallCount("IMediaControl::Run"), 0U);
  EXPECT_THAT(platform.Alive(), ::testing::ElementsAre("current media type"));
  host.InStatus(nullptr);
  EXPECT_EQ(Open(), 0);
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
}

TEST_F(Boundary, CloseInsideTheReportOfACloseHasNoEffect) {
  QueryAndOpen();
  host.InStatus([&](int) { EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSE_INCOMPLETE); });
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  EXPECT_THAT(platform.Journal(), Contains("status callback \"0\" 1 3").Times(1));
}

// --- Unpinning the module, which may unmap the library as soon as the calling thread has left it ---

TEST_F(Boundary, CloseInsideTheReportOfAnOpenUnpinsWhenTheOpenReturns) {
  QueryAndRelease();
  ExpectFormatLeft();
  host.InStatus([&](int status) {
    if (status == NUVEQ_SERVICE_STATUS_CAMERA_OPEN) {
      EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
      EXPECT_EQ(platform.CallCount("UnpinModule"), 0U);
    }
  });
  EXPECT_EQ(Open(), NUVEQ_CAMERA_GRAPH_FAILED);
  EXPECT_EQ(platform.Calls().back(), "UnpinModule(soon)");
}

TEST_F(Boundary, CloseInsideTheReportOfARefusedOpenUnpinsWhenItReturns) {
  QueryAndOpen();
  host.InStatus([&](int status) {
    if (status == NUVEQ_SERVICE_STATUS_CAMERA_OPEN) {
      EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
      EXPECT_EQ(platform.CallCount("UnpinModule"), 0U);
    }
  });
  EXPECT_EQ(Open(), NUVEQ_CAMERA_ALREADY_OPEN);
  EXPECT_EQ(platform.Calls().back(), "UnpinModule(before returning)");
}

TEST_F(Boundary, CloseInsideTheReportOfAQueryUnpinsWhenTheQueryReturns) {
  QueryAndOpen();
  platform.SetPc({{}, {PlugInCamera()}});
  host.InAction([&] {
    EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
    EXPECT_EQ(platform.CallCount("UnpinModule"), 0U);
  });
  EXPECT_EQ(Query(), NUVEQ_CAMERA_NOT_USABLE);
  EXPECT_EQ(platform.Calls().back(), "UnpinModule(before returning)");
}

TEST_F(Boundary, ModuleIsUnpinnedAfterExceptionHandling) {
  QueryAndOpen();
  int inFlight = -1;
  platform.Before("UnpinModule", [&] { inFlight = std::uncaught_exceptions(); });
  host.InStatus([](int) { throw std::runtime_error("host"); });
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSE_INCOMPLETE);
  EXPECT_EQ(inFlight, 0);
}

TEST_F(Boundary, ThrowingActionCallbackFailsTheQuery) {
  const NUVEQServiceListener listener{&HostCallbacks::OnStatus,
                                      [](const char*, std::uint32_t, NUVEQServiceAction*) -> std::int32_t {
                                        throw std::runtime_error("host");
                                      }};
  ASSERT_EQ(handler.RegisterServiceListener(&listener), 0);
  platform.SetPc({{}, {PlugInCamera()}});
  EXPECT_EQ(Query(), NUVEQ_CAMERA_NOT_USABLE);
}

TEST_F(Boundary, ThrowingPlatformCallFailsItsTableFunction) {
  for (const char* operation : {"SetupDiGetClassDevsW", "IPin::EnumMediaTypes", "AllocateHostBlock"}) {
    platform.Before(operation, [] { throw std::bad_alloc(); });
    NUVEQCameraCapabilities* records = nullptr;
    std::uint32_t count = 0;
    EXPECT_EQ(handler.GetCapability(&records, &count), -1000) << operation;
    platform.Before(operation, nullptr);
    platform.DisposeOf("device information set");
  }
  EXPECT_EQ(Query(), 0);
}

TEST_F(Boundary, FailedOperatorConstructionFailsEveryFunctionAndIsRetried) {
  Unload();
  LoadedLibrary fresh(NUVEQ_LIBRARY_FILE);
  ASSERT_EQ(fresh.GetCameraHandler(&handler), 0);
  platform.Before("CoInitialize", [] { throw std::bad_alloc(); });
  const unsigned before = platform.CallCount("CoInitialize");
  const NUVEQServiceListener listener{};
  EXPECT_EQ(handler.RegisterSendDataCallback(nullptr, 0, &HostCallbacks::OnData), -2);
  EXPECT_EQ(handler.RegisterServiceListener(&listener), -2);
  EXPECT_EQ(Open(), NUVEQ_CAMERA_GRAPH_FAILED);
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSE_INCOMPLETE);
  EXPECT_EQ(Query(), NUVEQ_CAMERA_NOT_USABLE);
  handler.ReleaseCapability(0, nullptr, 0);
  EXPECT_EQ(platform.CallCount("CoInitialize"), before + 6);
  // Failed initialisations are not balanced.
  platform.Before("CoInitialize", nullptr);
  EXPECT_EQ(Query(), 0);
  ReleaseCapabilities();
  fresh.Unload();
  EXPECT_EQ(platform.CallCount("CoUninitialize"), platform.CallCount("CoInitialize") - 6);
  for (int i = 0; i < 6; ++i) {
    CoUninitialize();
  }
}

TEST_F(Boundary, ThrowingLoggerLosesOnlyTheMessages) {
  QueryAndRelease();
  ExpectFormatLeft();
  platform.Before("GetLogger", [] { throw std::runtime_error("host"); });
  LoadedLibrary again(NUVEQ_LIBRARY_FILE);
  EXPECT_EQ(again.GetCameraHandler(nullptr), -2);
  EXPECT_EQ(Open(), 0);
  EXPECT_TRUE(platform.DeliverFrame(Frame(0, 0)));
  platform.AnswersNth("VideoEncoder::Encode", 1, scripted::Fails());
  EXPECT_TRUE(platform.DeliverFrame(Frame(kFrameSize, 1)));
  DeliverAndReceive(2);
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  EXPECT_THAT(platform.Logs(), IsEmpty());
}

TEST_F(Boundary, ThrowingLoggerDuringConstructionLosesOnlyTheMessages) {
  Unload();
  LoadedLibrary fresh(NUVEQ_LIBRARY_FILE);
  ASSERT_EQ(fresh.GetCameraHandler(&handler), 0);
  platform.Before("GetLogger", [] { throw std::runtime_error("host"); });
  EXPECT_EQ(handler.RegisterSendDataCallback(nullptr, 0, &HostCallbacks::OnData), 0);
  ASSERT_NO_FATAL_FAILURE(QueryAndOpen());
  DeliverAndReceive(1);
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  EXPECT_THAT(platform.Logs(), IsEmpty());
  platform.Before("GetLogger", nullptr);
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSE_INCOMPLETE);
  EXPECT_EQ(platform.Logs().size(), 1U) << "a logger that works again is used";
  fresh.Unload();
}

TEST_F(Boundary, FailedThreadStartFailsTheOpenUntilClose) {
  QueryAndRelease();
  ExpectFormatLeft(2);
  platform.SetStreaming({true, [](std::uint64_t) { return Frame(kFrameSize, 1); }});
  platform.SetRecording(false);
  std::optional<ThreadCreationFailure> refusal;
  // The graph's thread is started before the encoder thread.
  platform.Before("IMediaEvent::WaitForCompletion", [&] { refusal.emplace(); });
  EXPECT_EQ(Open(), NUVEQ_CAMERA_GRAPH_FAILED);
  refusal.reset();
  platform.Before("IMediaEvent::WaitForCompletion", nullptr);
  // No thread encodes: five frames fill the pool.
  ASSERT_TRUE(WaitFor([&] { return platform.DeliveredFrames() == 5; }));
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  EXPECT_EQ(Open(), 0);
  EXPECT_TRUE(host.WaitForPackets(10));
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
}

}  // namespace
