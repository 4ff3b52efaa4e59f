// Close, unload and process exit.
#include <algorithm>

#include "ProcessExitTest.h"
#include "support/CameraHandlerTest.h"

namespace {

using support::CameraHandlerTest;
using support::Frame;
using support::kFrameSize;
using support::Packet;
using support::WaitFor;

using CloseSequence = CameraHandlerTest;
using scripted::Fails;
using scripted::SFalse;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

TEST_F(CloseSequence, CloseWithoutOpenCameraHasNoEffect) {
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSE_INCOMPLETE);
  EXPECT_THAT(platform.Calls(), ElementsAre("CoInitialize()"));
  QueryAndOpen();
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  platform.ClearJournal();
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSE_INCOMPLETE);
  EXPECT_THAT(platform.Calls(), IsEmpty());
  EXPECT_THAT(platform.Journal(), Not(Contains(HasSubstr("callback"))));
}

TEST_F(CloseSequence, IncompleteGraphIsTornDownAndReturnsZero) {
  for (const scripted::Answer answer : {Fails(VFW_E_WRONG_STATE), SFalse()}) {
    QueryAndOpen();
    platform.AnswersNth("IMediaEvent::WaitForCompletion", 1, answer);
    platform.ClearJournal();
    EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSE_INCOMPLETE);
    EXPECT_THAT(platform.Journal(), Contains("status callback \"0\" 1 3"));
    EXPECT_THAT(platform.Alive(), ::testing::Each("current media type"));
  }
}

TEST_F(CloseSequence, FailedStopIsNotLoggedAndGraphIsTornDown) {
  QueryAndOpen();
  platform.Answers("IMediaControl::Stop", Fails());
  platform.ClearJournal();
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  EXPECT_EQ(platform.Logs().size(), 1U) << "the start of the close";
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

}  // namespace
