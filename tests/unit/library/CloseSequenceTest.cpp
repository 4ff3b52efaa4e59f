// Closing, unloading, and the states in which a graph could not be stopped if nothing were done about it.
#include <algorithm>
#include <atomic>
#include <thread>

#include "ProcessEnding.h"
#include "StoppingGraph.h"

namespace {

using CloseSequence = CameraHandlerTest;
using scripted::Fails;
using scripted::SFalse;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Not;

const std::string kCloseLine = "[CameraOperator]CloseCameraInner.(CameraOperator::CloseCameraInner)";

TEST_F(CloseSequence, CloseBeforeAnyOpenAnswersZeroAndReportsNothing) {
  EXPECT_EQ(Close(), 0);
  EXPECT_THAT(LogLines(), ElementsAre(ErrorLine(950, kCloseLine)));
  EXPECT_THAT(platform.Journal(), ElementsAre("CoInitialize()", "log: " + kCloseLine));
}

TEST_F(CloseSequence, SecondCloseDoesNothing) {
  QueryAndOpen();
  EXPECT_EQ(Close(), 1);
  platform.ClearJournal();
  EXPECT_EQ(Close(), 0);
  EXPECT_THAT(platform.Journal(), ElementsAre("log: " + kCloseLine));
}

TEST_F(CloseSequence, GraphThatHasNotCompletedMakesItAnswerZeroAndIsTornDownAllTheSame) {
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

TEST_F(CloseSequence, GraphThatCannotBeStoppedIsTornDownWithoutAWord) {
  QueryAndOpen();
  platform.Answers("IMediaControl::Stop", Fails());
  platform.ClearJournal();
  EXPECT_EQ(Close(), 1);
  EXPECT_THAT(LogLines(), ElementsAre(ErrorLine(950, kCloseLine)));
}

TEST_F(CloseSequence, IdIsPassedToTheReportAndNotCompared) {
  QueryAndOpen();
  EXPECT_EQ(Close("something else"), 1);
  EXPECT_THAT(platform.Journal(), Contains("status callback \"something else\" 14 3"));
}

TEST_F(CloseSequence, NullIdIsPassedOnLikeAnyOther) {
  QueryAndOpen();
  EXPECT_EQ(handler.CloseCameraDevice(nullptr, 3), 1);
  EXPECT_THAT(platform.Journal(), Contains("status callback null 3 3"));
}

TEST_F(CloseSequence, FailingStatusCallbackIsLoggedAndChangesNothing) {
  QueryAndOpen();
  host.AnswerStatus(12);
  platform.ClearJournal();
  EXPECT_EQ(Close(), 1);
  EXPECT_THAT(LogLines(), ElementsAre(ErrorLine(950, kCloseLine),
                                      ErrorLine(784,
                                                "[CameraOperator]fail to update service status, error: 12"
                                                "(CameraOperator::UpdateServiceStatusToNuveq)")));
}

TEST_F(CloseSequence, FramesGoBeforeTheControlInterfaceThenTheEventInterfaceThenTheEncoder) {
  QueryAndOpen();
  platform.ClearJournal();
  EXPECT_EQ(Close(), 1);
  const std::vector<std::string> journal = platform.JournalWithReferences();
  const auto report = std::find(journal.begin(), journal.end(), "status callback \"0\" 1 3");
  ASSERT_NE(report, journal.end());
  std::vector<std::string> ends;
  // What the interfaces take with them when they go is the platform's.
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

TEST_F(CloseSequence, UnloadingANeverOpenedCameraOnlyEndsCom) {
  ASSERT_EQ(Close(), 0);
  platform.ClearJournal();
  Unload();
  EXPECT_THAT(platform.Journal(), ElementsAre("CoUninitialize()"));
}

TEST_F(CloseSequence, UnloadingAfterAFailedOpenReleasesWhatThatLeft) {
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

// The operator's threads may have died with its locks held.
TEST_F(EndOfProcess, EndingProcessIsLeftAlone) {
  EXPECT_EXIT(OpenAndExit(true, {"IMediaControl::Stop", "UnpinModule", "CoUninitialize"}),
              ::testing::ExitedWithCode(kLeftAlone), "");
}

TEST_F(EndOfProcess, ProcessMayEndFromInsideTheDataCallback) {
  const auto endInTheCallback = [&] {
    QueryAndOpen();
    platform.DisposeOf("current media type");
    host.InData([](const Packet&) {
      std::exit(EXIT_SUCCESS);  // NOLINT(concurrency-mt-unsafe): what a host should not do, and may
    });
    platform.DeliverFrame(Frame(kFrameSize, 1));
    WaitUntil([] { return false; });
  };
  EXPECT_EXIT(endInTheCallback(), ::testing::ExitedWithCode(EXIT_SUCCESS), "");
}

// --- Stopping when buffers cannot come back ---

TEST_F(StarvedGraph, ClosesAfterEveryBufferWasLost) {
  OpenAndLoseEveryBuffer();
  platform.ClearJournal();
  EXPECT_EQ(Close(), 1);
  EXPECT_EQ(host.PacketCount(), 0U);
  EXPECT_THAT(platform.Journal(), Contains("IMediaControl::Stop()"));
}

TEST_F(StoppingGraph, StillTakesFramesWhenNoBufferWasLost) {
  QueryAndOpen();
  ExpectAFrameToArriveDuringTheStop();
  EXPECT_EQ(Close(), 1);
  EXPECT_EQ(host.PacketCount(), 1U);
}

TEST_F(StoppingGraph, StillTakesFramesWhenOneBufferIsLeft) {
  QueryAndOpen();
  for (int i = 0; i < 4; ++i) {
    ASSERT_TRUE(platform.DeliverFrame(Frame(kFrameSize + 1, 1)));
  }
  ExpectAFrameToArriveDuringTheStop();
  EXPECT_EQ(Close(), 1);
  EXPECT_EQ(host.PacketCount(), 1U);
}

TEST_F(StoppingGraph, StillTakesFramesWhenABufferIsLostMeanwhile) {
  QueryAndOpen();
  platform.Before("IMediaControl::Stop", [&] {
    EXPECT_TRUE(platform.DeliverFrame(Frame(kFrameSize + 1, 1)));
    EXPECT_TRUE(platform.DeliverFrame(Frame(kFrameSize, 2)));
    EXPECT_TRUE(host.WaitForPackets(1));
  });
  EXPECT_EQ(Close(), 1);
  EXPECT_EQ(host.PacketCount(), 1U);
}

TEST_F(StoppingGraph, HasAWholePoolAgainAfterEveryBufferWasLost) {
  OpenAndLoseEveryBuffer();
  EXPECT_EQ(Close(), 1);
  platform.SetStreaming({});
  ExpectFormatLeft();
  EXPECT_EQ(Open(), 0);
  // Four lost buffers are four, not nine.
  for (int i = 0; i < 4; ++i) {
    ASSERT_TRUE(platform.DeliverFrame(Frame(kFrameSize + 1, 1)));
  }
  ExpectAFrameToArriveDuringTheStop();
  EXPECT_EQ(Close(), 1);
  EXPECT_EQ(host.PacketCount(), 1U);
}

TEST_F(StarvedGraph, ClosesWhenTheLastBufferIsLostWhileTheGraphStops) {
  QueryAndOpen();
  for (int i = 0; i < 4; ++i) {
    ASSERT_TRUE(platform.DeliverFrame(Frame(kFrameSize + 1, 1)));
  }
  std::thread camera;
  std::atomic<bool> isDelivered = false;
  platform.Before("IMediaControl::Stop", [&] {
    // The stop has begun; the streaming thread loses the last buffer and is already at its next frame.
    EXPECT_TRUE(platform.DeliverFrame(Frame(kFrameSize + 1, 1)));
    camera = std::thread([&] {
      platform.DeliverFrame(Frame(kFrameSize, 2));
      isDelivered = true;
    });
    EXPECT_TRUE(WaitUntil([&] { return isDelivered || platform.FramesInDelivery() == 1; }));
  });
  EXPECT_EQ(Close(), 1);
  camera.join();
}

TEST_F(StarvedGraph, ClosesWhenTheGraphStreamsButNoThreadEncodes) {
  QueryAndRelease();
  ExpectFormatLeft();
  // The graph says that it will run in a while, which counts as a failure, and does run.
  platform.Answers("IMediaControl::Run", SFalse());
  platform.SetStreaming({true, [](std::uint64_t) { return Frame(kFrameSize, 1); }});
  EXPECT_EQ(Open(), -1001);
  ASSERT_TRUE(WaitUntil([&] { return platform.DeliveredFrames() == 5; }));
  EXPECT_EQ(Close(), 1);
}

TEST_F(StarvedGraph, BlockedCallbackReturnsWhenABufferComesBackAndTheFrameIsNotLost) {
  QueryAndRelease();
  ExpectFormatLeft();
  Gate mayAnswer;
  host.InData([&](const Packet&) { EXPECT_TRUE(mayAnswer.Wait()); });
  platform.SetStreaming({true, [](std::uint64_t number) {
                           return number < 6 ? Frame(kFrameSize, static_cast<std::uint8_t>(number))
                                             : Frame(0, 0);
                         }});
  EXPECT_EQ(Open(), 0);
  // One frame is in the callback and gave its buffer back, five are queued: the pool is empty, nothing is
  // lost.
  ASSERT_TRUE(WaitUntil([&] { return platform.DeliveredFrames() == 6; }));
  mayAnswer.Open();
  EXPECT_TRUE(host.WaitForPackets(6));
  EXPECT_EQ(Close(), 1);
}

TEST_F(StarvedGraph, ClosesWhileACallbackIsBlockedOnAFullPool) {
  QueryAndRelease();
  ExpectFormatLeft();
  Gate mayAnswer;
  host.InData([&](const Packet&) { EXPECT_TRUE(mayAnswer.Wait()); });
  platform.SetStreaming({true, [](std::uint64_t) { return Frame(kFrameSize, 1); }});
  EXPECT_EQ(Open(), 0);
  EXPECT_TRUE(WaitUntil([&] { return platform.DeliveredFrames() == 6 && platform.FramesInDelivery() == 1; }));
  std::thread closer([&] { EXPECT_EQ(Close(), 1); });
  EXPECT_TRUE(WaitUntil([&] { return platform.CallCount("IMediaControl::Stop") == 1; }));
  mayAnswer.Open();
  closer.join();
}

TEST_F(CloseSequence, CloseFromInsideTheDataCallbackAnswersZeroAndLeavesTheCameraOpen) {
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
