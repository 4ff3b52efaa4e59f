// Assembly of the capture graph. OpenFailureTest.cpp tests the failure of each step.
#include <algorithm>

#include "support/CameraOperatorTest.h"

namespace {

using scripted::Fails;
using scripted::kBuiltInDisplayName;
using scripted::kBuiltInId;
using scripted::SFalse;
using scripted::Yuy2;
using support::CameraOperatorTest;
using support::ErrorLine;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Not;

class CaptureGraphAssembly : public CameraOperatorTest {
 protected:
  void SetUp() override {
    CameraOperatorTest::SetUp();
    ASSERT_EQ(camera->CameraCount(), 1U);
    platform.ClearJournal();
  }
  void SetPins(std::vector<scripted::Pin> pins) {
    platform.SetPc({{{0, kBuiltInId}}, {{"built-in", kBuiltInDisplayName, std::move(pins)}}});
  }
  bool Open() { return camera->OpenCamera(0, 640, 480, 30, MEDIASUBTYPE_YUY2); }
};

TEST_F(CaptureGraphAssembly, ConnectsTwoFiltersWithoutRunning) {
  ExpectLeft("current media type");
  EXPECT_TRUE(Open());
  EXPECT_TRUE(Access::IsOpened(*camera));
  EXPECT_THAT(platform.Calls(), Contains(::testing::StartsWith("IFilterGraph::AddFilter")).Times(2));
  EXPECT_THAT(platform.Calls(), Contains("IGraphBuilder::Connect(built-in.capture, grabber.in)"));
  EXPECT_EQ(platform.CallCount("IMediaControl::Run"), 0U);
  EXPECT_THAT(platform.Alive(), ::testing::UnorderedElementsAre(
                                    "current media type", "pin of the module", "graph: 2", "built-in: 1",
                                    "built-in.capture: 1", "grabber: 1", "grabber.in: 1", "grabber.out: 1"));
}

TEST_F(CaptureGraphAssembly, RemovedCameraFailsEvenIfAddFilterAcceptsNull) {
  platform.SetPc({{{0, kBuiltInId}}, {scripted::PlugInCamera()}});
  platform.Answers("IFilterGraph::AddFilter", scripted::SucceedsWithNull());
  EXPECT_FALSE(Open());
  EXPECT_EQ(LogLines().back(),
            ErrorLine("[CameraOperator]AddDeviceFilter fail.(CameraOperator::OpenCamera)"));
}

TEST_F(CaptureGraphAssembly, CameraWithoutOutputPinFails) {
  SetPins({{"control", PINDIR_INPUT, {}}, {"crossbar", PINDIR_INPUT, {}}});
  EXPECT_FALSE(Open());
  EXPECT_THAT(LogLines(),
              ElementsAre(ErrorLine("[CameraOperator]start OpenCamera, width:640, height:480, fps:30"
                                    "(CameraOperator::OpenCamera)"),
                          ErrorLine("[CameraOperator]QueryFilterPin fail.(CameraOperator::QueryFilterPin)")));
  EXPECT_FALSE(Access::IsOpened(*camera));
}

TEST_F(CaptureGraphAssembly, UsesTheFirstPinOfTheDirection) {
  SetPins({{"control", PINDIR_INPUT, {}},
           {"capture", PINDIR_OUTPUT, {Yuy2(640, 480, 30)}},
           {"still", PINDIR_OUTPUT, {Yuy2(640, 480, 30)}}});
  ExpectLeft("current media type");
  EXPECT_TRUE(Open());
  EXPECT_THAT(platform.Calls(), Contains("IGraphBuilder::Connect(built-in.capture, grabber.in)"));
}

TEST_F(CaptureGraphAssembly, SkipsNullPins) {
  scripted::Pin null;
  null.isNull = true;
  SetPins({null, null, {"capture", PINDIR_OUTPUT, {Yuy2(640, 480, 30)}}});
  ExpectLeft("current media type");
  EXPECT_TRUE(Open());
}

TEST_F(CaptureGraphAssembly, SkipsPinWhoseDirectionCannotBeQueried) {
  SetPins({{"mute", PINDIR_OUTPUT, {}}, {"capture", PINDIR_OUTPUT, {Yuy2(640, 480, 30)}}});
  ExpectLeft("current media type");
  platform.AnswersNth("IPin::QueryDirection", 1, SFalse());
  EXPECT_TRUE(Open());
  EXPECT_THAT(platform.Calls(), Contains("IGraphBuilder::Connect(built-in.capture, grabber.in)"));
}

TEST_F(CaptureGraphAssembly, PinWithUnwrittenDirectionIsNotAnOutput) {
  SetPins({{"mute", PINDIR_OUTPUT, {}}, {"capture", PINDIR_OUTPUT, {Yuy2(640, 480, 30)}}});
  ExpectLeft("current media type");
  platform.AnswersNth("IPin::QueryDirection", 1, scripted::SucceedsWithNull());
  EXPECT_TRUE(Open());
  EXPECT_THAT(platform.Calls(), Contains("IGraphBuilder::Connect(built-in.capture, grabber.in)"));
}

TEST_F(CaptureGraphAssembly, PinWithFailedDirectionIsNotAnInput) {
  SetPins({{"capture", PINDIR_OUTPUT, {Yuy2(640, 480, 30)}}});
  ExpectLeft("current media type");
  // The second query is for the grabber's input pin.
  platform.AnswersNth("IPin::QueryDirection", 2, Fails());
  EXPECT_FALSE(Open());
  EXPECT_THAT(LogLines().back(),
              ErrorLine("[CameraOperator]QueryFilterPin fail.(CameraOperator::QueryFilterPin)"));
  EXPECT_THAT(platform.Calls(), Not(Contains(::testing::StartsWith("IGraphBuilder::Connect"))));
}

TEST_F(CaptureGraphAssembly, FailedConnectionLeavesTheCameraNotOpen) {
  ExpectLeft("current media type");
  platform.Answers("IGraphBuilder::Connect", Fails(VFW_E_CANNOT_CONNECT));
  EXPECT_FALSE(Open());
  EXPECT_THAT(
      LogLines().back(),
      ErrorLine("[CameraOperator]fail to Connect pin, error: -2147220969(CameraOperator::OpenCamera)"));
  EXPECT_FALSE(Access::IsOpened(*camera));
  EXPECT_TRUE(Access::HasControl(*camera));
  EXPECT_TRUE(Access::HasEvent(*camera));
  EXPECT_THAT(platform.Alive(), Contains("graph: 2"));
}

TEST_F(CaptureGraphAssembly, SecondGraphOverwritesInterfacesWithoutReleasingThem) {
  ExpectLeft("current media type", 2);
  EXPECT_TRUE(Open());
  EXPECT_TRUE(Open());
  EXPECT_THAT(platform.Alive(), Contains("graph: 2").Times(2));
  EXPECT_EQ(platform.CallCount("PinModule"), 1U);
  camera->StopCapture();
  camera->UnpinModuleAfterClose();
  // The first graph is leaked with both references and its filters.
  EXPECT_THAT(platform.Alive(), ::testing::UnorderedElementsAre(
                                    "current media type", "current media type", "graph: 2", "built-in: 1",
                                    "built-in.capture: 1", "grabber: 1", "grabber.in: 1", "grabber.out: 1"));
  platform.DisposeOf("graph: 2");
  platform.DisposeOf("graph: 1");
}

TEST_F(CaptureGraphAssembly, StaleOutputPointerIsNotUsedAfterAFailure) {
  ComPtr<IGraphBuilder> graph;
  ASSERT_TRUE(camera->InitCameraBasicInfo(graph.Put()));
  ComPtr<IBaseFilter> grabber;
  ASSERT_TRUE(camera->AddSampleGrabberFilter(graph.Get(), 640, 480, grabber.Put()));
  for (const scripted::Answer answer : {Fails(), scripted::FailsWithOutput(), SFalse()}) {
    platform.Answers("CoCreateInstance", answer);
    IGraphBuilder* sameGraph = graph.Get();
    EXPECT_FALSE(camera->InitCameraBasicInfo(&sameGraph));
    EXPECT_EQ(sameGraph, graph.Get());
    IBaseFilter* sameGrabber = grabber.Get();
    EXPECT_FALSE(camera->AddSampleGrabberFilter(graph.Get(), 640, 480, &sameGrabber));
    EXPECT_EQ(sameGrabber, grabber.Get());
  }
}

TEST_F(CaptureGraphAssembly, FailedGraphKeepsTheOpenFlag) {
  ExpectLeft("current media type");
  EXPECT_TRUE(Open());
  platform.AnswersNth("CoCreateInstance", 1, Fails());
  EXPECT_FALSE(Open());
  EXPECT_TRUE(Access::IsOpened(*camera));
}

TEST_F(CaptureGraphAssembly, OpenFlagWithoutControlInterfaceSkipsTheStop) {
  ExpectLeft("current media type");
  EXPECT_TRUE(Open());
  // The second graph has no control interface, which overwrites that of the first.
  platform.AnswersNth("IUnknown::QueryInterface", 1, Fails(E_NOINTERFACE));
  EXPECT_FALSE(Open());
  EXPECT_TRUE(Access::IsOpened(*camera));
  EXPECT_FALSE(Access::HasControl(*camera));
  EXPECT_FALSE(camera->CloseCameraInner("0", 1));
  camera.reset();
  EXPECT_EQ(platform.CallCount("IMediaControl::Stop"), 0U);
  platform.DisposeOf("graph: 1");
}

TEST_F(CaptureGraphAssembly, ReleasesTemporariesInReverseOrder) {
  ExpectLeft("current media type");
  EXPECT_TRUE(Open());
  const std::vector<std::string> journal = platform.JournalWithReferences();
  const auto success = std::find(journal.begin(), journal.end(),
                                 "log: [CameraOperator]OpenCamera success.(CameraOperator::OpenCamera)");
  ASSERT_NE(success, journal.end());
  const std::vector<std::string> after(success + 1, journal.end());
  EXPECT_THAT(after, ElementsAre("Release(grabber.in)", "Release(built-in.capture)", "Release(grabber)",
                                 "Release(built-in)", "Release(graph)"));
}

}  // namespace
