// Assembly of the capture graph. The fault injection tests the failure of each call.
#include "support/CameraOperatorTest.h"

namespace {

using scripted::Fails;
using scripted::kBuiltInDisplayName;
using scripted::kBuiltInId;
using scripted::SFalse;
using scripted::SucceedsWithNull;
using scripted::Yuy2;
using support::CameraOperatorTest;
using ::testing::Contains;
using ::testing::ElementsAre;

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
  void ExpectCapturePinToBeConnected() {
    ExpectLeft("current media type");
    platform.ClearJournal();
    EXPECT_TRUE(Open());
    EXPECT_THAT(platform.Calls(), Contains("IGraphBuilder::Connect(built-in.capture, grabber.in)"));
    camera->StopCapture();
  }

  const scripted::Pin kCapture{"capture", PINDIR_OUTPUT, {Yuy2(640, 480, 30)}};
};

TEST_F(CaptureGraphAssembly, RemovedCameraFailsEvenIfAddFilterAcceptsNull) {
  platform.SetPc({{{0, kBuiltInId}}, {scripted::PlugInCamera()}});
  EXPECT_FALSE(Open());
  camera->StopCapture();
  platform.Answers("IFilterGraph::AddFilter", SucceedsWithNull());
  EXPECT_FALSE(Open());
  EXPECT_EQ(platform.CallCount("IBaseFilter::EnumPins"), 0U);
}

TEST_F(CaptureGraphAssembly, UsesTheFirstPinOfTheDirection) {
  SetPins({{"control", PINDIR_INPUT, {}}, kCapture, {"still", PINDIR_OUTPUT, {Yuy2(640, 480, 30)}}});
  ExpectCapturePinToBeConnected();
}

TEST_F(CaptureGraphAssembly, SkipsPinWhoseDirectionCannotBeQueried) {
  for (const scripted::Answer answer : {Fails(), SFalse(), SucceedsWithNull()}) {
    SetPins({{"mute", PINDIR_OUTPUT, {}}, kCapture});
    platform.AnswersNth("IPin::QueryDirection", 1, answer);
    ExpectCapturePinToBeConnected();
  }
}

TEST_F(CaptureGraphAssembly, CameraWithoutOutputPinFails) {
  SetPins({{"control", PINDIR_INPUT, {}}, {"crossbar", PINDIR_INPUT, {}}});
  EXPECT_FALSE(Open());
  EXPECT_FALSE(Access::IsOpened(*camera));
}

TEST_F(CaptureGraphAssembly, GrabberPinWithFailedDirectionIsNotAnInput) {
  ExpectLeft("current media type");
  platform.AnswersNth("IPin::QueryDirection", 2, Fails());
  EXPECT_FALSE(Open());
  EXPECT_EQ(platform.CallCount("IGraphBuilder::Connect"), 0U);
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

TEST_F(CaptureGraphAssembly, FailedSecondGraphKeepsTheOpenFlag) {
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
  ASSERT_GE(journal.size(), 5U);
  EXPECT_THAT(std::vector<std::string>(journal.end() - 5, journal.end()),
              ElementsAre("Release(grabber.in)", "Release(built-in.capture)", "Release(grabber)",
                          "Release(built-in)", "Release(graph)"));
}

}  // namespace
