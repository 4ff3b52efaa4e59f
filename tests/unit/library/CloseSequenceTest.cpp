// Close, unload, and closing while the camera waits for a buffer.
#include <algorithm>
#include <atomic>
#include <thread>

#include "ExhaustedPoolTest.h"
#include "ProcessExitTest.h"

namespace {

using support::CameraHandlerTest;
using support::ErrorLine;
using support::Frame;
using support::Gate;
using support::kFrameSize;
using support::Packet;
using support::WaitFor;

using CloseSequence = CameraHandlerTest;
using scripted::BuiltInCamera;
using scripted::Fails;
using scripted::kBuiltInId;
using scripted::SFalse;
using scripted::Yuy2;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Not;

const std::string kCloseLine = "[CameraOperator]CloseCameraInner.(CameraOperator::CloseCameraInner)";

TEST_F(CloseSequence, CloseBeforeOpenReturnsZeroWithoutReport) {
  EXPECT_EQ(Close(), 0);
  EXPECT_THAT(LogLines(), ElementsAre(ErrorLine(950, kCloseLine)));
  EXPECT_THAT(platform.Journal(), ElementsAre("CoInitialize()", "log: " + kCloseLine));
}

TEST_F(CloseSequence, SecondCloseHasNoEffect) {
  QueryAndOpen();
  EXPECT_EQ(Close(), 1);
  platform.ClearJournal();
  EXPECT_EQ(Close(), 0);
  EXPECT_THAT(platform.Journal(), ElementsAre("log: " + kCloseLine));
}

TEST_F(CloseSequence, IncompleteGraphIsTornDownAndReturnsZero) {
  for (const scripted::Answer answer : {Fails(VFW_E_WRONG_STATE), SFalse()}) {
    QueryAndOpen();
    platform.AnswersNth("IMediaEvent::WaitForCompletion", 1, answer);
    platform.ClearJournal();
    EXPECT_EQ(Close(), 0);
    EXPECT_THAT(platform.Journal(), Contains("status callback \"0\" 1 3"));
    EXPECT_THAT(platform.Alive(), ::testing::Each("current media type"));
    EXPECT_THAT(LogLines(), ElementsAre(ErrorLine(950, kCloseLine)));
  }
}

TEST_F(CloseSequence, FailedStopIsNotLoggedAndGraphIsTornDown) {
  QueryAndOpen();
  platform.Answers("IMediaControl::Stop", Fails());
  platform.ClearJournal();
  EXPECT_EQ(Close(), 1);
  EXPECT_THAT(LogLines(), ElementsAre(ErrorLine(950, kCloseLine)));
}

TEST_F(CloseSequence, IdIsPassedToTheReportUnchecked) {
  QueryAndOpen();
  EXPECT_EQ(Close("something else"), 1);
  EXPECT_THAT(platform.Journal(), Contains("status callback \"something else\" 14 3"));
}

TEST_F(CloseSequence, NullIdIsPassedToTheReport) {
  QueryAndOpen();
  EXPECT_EQ(handler.CloseCameraDevice(nullptr, 3), 1);
  EXPECT_THAT(platform.Journal(), Contains("status callback null 3 3"));
}

TEST_F(CloseSequence, StatusCallbackErrorIsOnlyLogged) {
  QueryAndOpen();
  host.SetStatusResult(12);
  platform.ClearJournal();
  EXPECT_EQ(Close(), 1);
  EXPECT_THAT(LogLines(), ElementsAre(ErrorLine(950, kCloseLine),
                                      ErrorLine(784,
                                                "[CameraOperator]fail to update service status, error: 12"
                                                "(CameraOperator::UpdateServiceStatusToNuveq)")));
}

TEST_F(CloseSequence, ReleasesFramesThenInterfacesThenEncoder) {
  QueryAndOpen();
  platform.ClearJournal();
  EXPECT_EQ(Close(), 1);
  const std::vector<std::string> journal = platform.JournalWithReferences();
  const auto report = std::find(journal.begin(), journal.end(), "status callback \"0\" 1 3");
  ASSERT_NE(report, journal.end());
  std::vector<std::string> ends;
  // Releases by the platform's own objects are left out.
  std::copy_if(report + 1, journal.end(), std::back_inserter(ends), [](const std::string& event) {
    return !event.starts_with("Release(") || event.starts_with("Release(graph control") ||
           event.starts_with("Release(graph event");
  });
  EXPECT_THAT(
      ends,
      ElementsAre("VideoFrame::ReleaseBuffer()", "VideoFrame::ReleaseBuffer()", "VideoFrame::ReleaseBuffer()",
                  "VideoFrame::ReleaseBuffer()", "VideoFrame::ReleaseBuffer()", "Release(graph control)",
                  "Release(graph event)", "VideoEncoder::ReleaseEncoder()", "UnpinModule(before returning)"));
}

// --- Unloading ---

TEST_F(CloseSequence, UnloadWithoutOpenOnlyUninitialisesCom) {
  ASSERT_EQ(Close(), 0);
  platform.ClearJournal();
  Unload();
  EXPECT_THAT(platform.Journal(), ElementsAre("CoUninitialize()"));
}

TEST_F(CloseSequence, UnloadAfterFailedOpenReleasesPartialState) {
  QueryAndRelease();
  platform.AnswersNth("IFilterGraph::AddFilter", 1, Fails());
  ASSERT_EQ(Open(), -1001);
  platform.ClearJournal();
  Unload();
  EXPECT_THAT(platform.Calls(), ElementsAre("VideoFrame::ReleaseBuffer()", "VideoFrame::ReleaseBuffer()",
                                            "VideoFrame::ReleaseBuffer()", "VideoFrame::ReleaseBuffer()",
                                            "VideoFrame::ReleaseBuffer()", "VideoEncoder::ReleaseEncoder()",
                                            "UnpinModule(soon)", "CoUninitialize()"));
}

// The operator's threads may have been killed with locks held.
TEST_F(ProcessExit, SkipsTeardownWhenThreadsAreGone) {
  EXPECT_EXIT(OpenAndExit(true, {"IMediaControl::Stop", "UnpinModule", "CoUninitialize"}),
              ::testing::ExitedWithCode(kLeftAlone), "");
}

TEST_F(ProcessExit, ExitInsideTheDataCallbackSucceeds) {
  const auto endInTheCallback = [&] {
    QueryAndOpen();
    platform.DisposeOf("current media type");
    host.InData([](const Packet&) {
      std::exit(EXIT_SUCCESS);  // NOLINT(concurrency-mt-unsafe): under test
    });
    platform.DeliverFrame(Frame(kFrameSize, 1));
    WaitFor([] { return false; });
  };
  EXPECT_EXIT(endInTheCallback(), ::testing::ExitedWithCode(EXIT_SUCCESS), "");
}

// --- Closing while the camera waits for a buffer ---

TEST_F(ExhaustedPool, CloseReturnsAfterAllBuffersWereLost) {
  OpenAndLoseEveryBuffer();
  platform.ClearJournal();
  EXPECT_EQ(Close(), 1);
  EXPECT_EQ(host.PacketCount(), 0U);
  EXPECT_THAT(platform.Journal(), Contains("IMediaControl::Stop()"));
}

TEST_F(GraphStop, EncodesFramesWithFullPool) {
  QueryAndOpen();
  ExpectAFrameToArriveDuringTheStop();
  EXPECT_EQ(Close(), 1);
  EXPECT_EQ(host.PacketCount(), 1U);
}

TEST_F(GraphStop, EncodesFramesWithOneBufferLeft) {
  QueryAndOpen();
  for (int i = 0; i < 4; ++i) {
    ASSERT_TRUE(platform.DeliverFrame(Frame(kFrameSize + 1, 1)));
  }
  ExpectAFrameToArriveDuringTheStop();
  EXPECT_EQ(Close(), 1);
  EXPECT_EQ(host.PacketCount(), 1U);
}

TEST_F(GraphStop, EncodesFramesAfterLosingABufferDuringStop) {
  QueryAndOpen();
  platform.Before("IMediaControl::Stop", [&] {
    EXPECT_TRUE(platform.DeliverFrame(Frame(kFrameSize + 1, 1)));
    EXPECT_TRUE(platform.DeliverFrame(Frame(kFrameSize, 2)));
    EXPECT_TRUE(host.WaitForPackets(1));
  });
  EXPECT_EQ(Close(), 1);
  EXPECT_EQ(host.PacketCount(), 1U);
}

TEST_F(GraphStop, NextSessionHasAllBuffersAfterAllWereLost) {
  OpenAndLoseEveryBuffer();
  EXPECT_EQ(Close(), 1);
  platform.SetStreaming({});
  ExpectFormatLeft();
  EXPECT_EQ(Open(), 0);
  // The count of lost buffers starts from 0 again.
  for (int i = 0; i < 4; ++i) {
    ASSERT_TRUE(platform.DeliverFrame(Frame(kFrameSize + 1, 1)));
  }
  ExpectAFrameToArriveDuringTheStop();
  EXPECT_EQ(Close(), 1);
  EXPECT_EQ(host.PacketCount(), 1U);
}

TEST_F(ExhaustedPool, CloseReturnsIfTheLastBufferIsLostDuringStop) {
  QueryAndOpen();
  for (int i = 0; i < 4; ++i) {
    ASSERT_TRUE(platform.DeliverFrame(Frame(kFrameSize + 1, 1)));
  }
  std::thread camera;
  std::atomic<bool> isDelivered = false;
  platform.Before("IMediaControl::Stop", [&] {
    // The streaming thread loses the last buffer during the stop and then delivers another frame.
    EXPECT_TRUE(platform.DeliverFrame(Frame(kFrameSize + 1, 1)));
    camera = std::thread([&] {
      platform.DeliverFrame(Frame(kFrameSize, 2));
      isDelivered = true;
    });
    EXPECT_TRUE(WaitFor([&] { return isDelivered || platform.FramesInDelivery() == 1; }));
  });
  EXPECT_EQ(Close(), 1);
  camera.join();
}

TEST_F(ExhaustedPool, CloseReturnsWithoutEncoderThread) {
  QueryAndRelease();
  ExpectFormatLeft();
  // S_FALSE is a failure, but the graph runs.
  platform.Answers("IMediaControl::Run", SFalse());
  platform.SetStreaming({true, [](std::uint64_t) { return Frame(kFrameSize, 1); }});
  EXPECT_EQ(Open(), -1001);
  ASSERT_TRUE(WaitFor([&] { return platform.DeliveredFrames() == 5; }));
  EXPECT_EQ(Close(), 1);
}

TEST_F(ExhaustedPool, WaitingFrameIsEncodedOnceABufferIsFree) {
  QueryAndRelease();
  ExpectFormatLeft();
  Gate mayReturn;
  host.InData([&](const Packet&) { EXPECT_TRUE(mayReturn.Wait()); });
  platform.SetStreaming({true, [](std::uint64_t number) {
                           return number < 6 ? Frame(kFrameSize, static_cast<std::uint8_t>(number))
                                             : Frame(0, 0);
                         }});
  EXPECT_EQ(Open(), 0);
  // One frame is in the data callback, its buffer has been returned, and five frames are queued.
  ASSERT_TRUE(WaitFor([&] { return platform.DeliveredFrames() == 6; }));
  mayReturn.Open();
  EXPECT_TRUE(host.WaitForPackets(6));
  EXPECT_EQ(Close(), 1);
}

TEST_F(ExhaustedPool, CloseReturnsWhileTheCameraWaitsForABuffer) {
  QueryAndRelease();
  ExpectFormatLeft();
  Gate mayReturn;
  host.InData([&](const Packet&) { EXPECT_TRUE(mayReturn.Wait()); });
  platform.SetStreaming({true, [](std::uint64_t) { return Frame(kFrameSize, 1); }});
  EXPECT_EQ(Open(), 0);
  EXPECT_TRUE(WaitFor([&] { return platform.DeliveredFrames() == 6 && platform.FramesInDelivery() == 1; }));
  std::thread closer([&] { EXPECT_EQ(Close(), 1); });
  EXPECT_TRUE(WaitFor([&] { return platform.CallCount("IMediaControl::Stop") == 1; }));
  mayReturn.Open();
  closer.join();
}

TEST_F(ExhaustedPool, CloseReturnsEveryTimeTheCameraWaitsForABuffer) {
  constexpr std::uint32_t kSide = 16;  // small frames for many rounds
  platform.SetPc({{{0, kBuiltInId}}, {BuiltInCamera({Yuy2(kSide, kSide, 30)})}});
  QueryAndRelease();
  platform.SetStreaming({true, [](std::uint64_t) { return Frame(std::size_t{kSide} * kSide * 2, 1); }});
  platform.SetRecording(false);
  host.KeepPackets(false);
  for (int round = 0; round < 300; ++round) {
    Gate mayReturn;
    host.InData([&](const Packet&) { EXPECT_TRUE(mayReturn.Wait()); });
    const std::uint64_t full = platform.DeliveredFrames() + 6;
    const unsigned stops = platform.CallCount("IMediaControl::Stop");
    ASSERT_EQ(Open("0", kSide, kSide, 30), 0);
    ExpectFormatLeft();
    // One frame is in the data callback, five are queued, and the next one waits.
    EXPECT_TRUE(
        WaitFor([&] { return platform.DeliveredFrames() == full && platform.FramesInDelivery() == 1; }));
    std::thread closer([&] { EXPECT_EQ(Close(), 1); });
    EXPECT_TRUE(WaitFor([&] { return platform.CallCount("IMediaControl::Stop") > stops; }));
    mayReturn.Open();
    closer.join();
  }
}

TEST_F(CloseSequence, CloseInsideTheDataCallbackReturnsZeroWithoutEffect) {
  QueryAndOpen();
  std::atomic<int> inside = -1;
  host.InData([&](const Packet&) { inside = Close(); });
  DeliverAndReceive(1);
  EXPECT_EQ(inside, 0);
  host.InData(nullptr);
  DeliverAndReceive(2);
  EXPECT_THAT(platform.Journal(), Not(Contains("status callback \"0\" 1 3")));
  EXPECT_EQ(Close(), 1);
  EXPECT_THAT(platform.Journal(), Contains("status callback \"0\" 1 3").Times(1));
}

}  // namespace
