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
using scripted::PlugInCamera;
using ::testing::IsEmpty;

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

// Unpinning may unmap the library as soon as the calling thread has left it.
TEST_F(Boundary, ModuleIsUnpinnedAfterExceptionHandling) {
  QueryAndOpen();
  int inFlight = -1;
  platform.Before("UnpinModule", [&] { inFlight = std::uncaught_exceptions(); });
  host.InStatus([](int) { throw std::runtime_error("host"); });
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSE_INCOMPLETE);
  EXPECT_EQ(inFlight, 0);
}

TEST_F(Boundary, ThrowingActionCallbackFailsTheQuery) {
  host.InAction([] { throw std::runtime_error("host"); });
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
