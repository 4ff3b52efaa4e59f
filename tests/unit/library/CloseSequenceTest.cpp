// Close, unload and process exit.
#include <algorithm>
#include <atomic>

#include "ProcessExitTest.h"
#include "support/CameraHandlerTest.h"

namespace {

using support::CameraHandlerTest;
using support::ErrorLine;
using support::Frame;
using support::kFrameSize;
using support::Packet;
using support::WaitFor;

using CloseSequence = CameraHandlerTest;
using scripted::Fails;
using scripted::SFalse;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Not;

const std::string kCloseLine = "[CameraOperator]CloseCameraInner.(CameraOperator::CloseCameraInner)";

TEST_F(CloseSequence, CloseBeforeOpenReturnsZeroWithoutReport) {
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSE_INCOMPLETE);
  EXPECT_THAT(LogLines(), ElementsAre(ErrorLine(950, kCloseLine)));
  EXPECT_THAT(platform.Journal(), ElementsAre("CoInitialize()", "log: " + kCloseLine));
}

TEST_F(CloseSequence, SecondCloseHasNoEffect) {
  QueryAndOpen();
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  platform.ClearJournal();
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSE_INCOMPLETE);
  EXPECT_THAT(platform.Journal(), ElementsAre("log: " + kCloseLine));
}

TEST_F(CloseSequence, IncompleteGraphIsTornDownAndReturnsZero) {
  for (const scripted::Answer answer : {Fails(VFW_E_WRONG_STATE), SFalse()}) {
    QueryAndOpen();
    platform.AnswersNth("IMediaEvent::WaitForCompletion", 1, answer);
    platform.ClearJournal();
    EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSE_INCOMPLETE);
    EXPECT_THAT(platform.Journal(), Contains("status callback \"0\" 1 3"));
    EXPECT_THAT(platform.Alive(), ::testing::Each("current media type"));
    EXPECT_THAT(LogLines(), ElementsAre(ErrorLine(950, kCloseLine)));
  }
}

TEST_F(CloseSequence, FailedStopIsNotLoggedAndGraphIsTornDown) {
  QueryAndOpen();
  platform.Answers("IMediaControl::Stop", Fails());
  platform.ClearJournal();
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  EXPECT_THAT(LogLines(), ElementsAre(ErrorLine(950, kCloseLine)));
}

TEST_F(CloseSequence, IdIsPassedToTheReportUnchecked) {
  QueryAndOpen();
  EXPECT_EQ(Close("something else"), NUVEQ_CAMERA_CLOSED);
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
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  EXPECT_THAT(LogLines(), ElementsAre(ErrorLine(950, kCloseLine),
                                      ErrorLine(784,
                                                "[CameraOperator]fail to update service status, error: 12"
                                                "(CameraOperator::UpdateServiceStatusToNuveq)")));
}

TEST_F(CloseSequence, ReleasesFramesThenInterfacesThenEncoder) {
  QueryAndOpen();
  platform.ClearJournal();
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
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
  ASSERT_EQ(Close(), NUVEQ_CAMERA_CLOSE_INCOMPLETE);
  platform.ClearJournal();
  Unload();
  EXPECT_THAT(platform.Journal(), ElementsAre("CoUninitialize()"));
}

TEST_F(CloseSequence, UnloadAfterFailedOpenReleasesPartialState) {
  QueryAndRelease();
  platform.AnswersNth("IFilterGraph::AddFilter", 1, Fails());
  ASSERT_EQ(Open(), NUVEQ_CAMERA_GRAPH_FAILED);
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

TEST_F(CloseSequence, CloseInsideTheDataCallbackReturnsZeroWithoutEffect) {
  QueryAndOpen();
  std::atomic<int> inside = -1;
  host.InData([&](const Packet&) { inside = Close(); });
  DeliverAndReceive(1);
  EXPECT_EQ(inside, 0);
  host.InData(nullptr);
  DeliverAndReceive(2);
  EXPECT_THAT(platform.Journal(), Not(Contains("status callback \"0\" 1 3")));
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  EXPECT_THAT(platform.Journal(), Contains("status callback \"0\" 1 3").Times(1));
}

}  // namespace
