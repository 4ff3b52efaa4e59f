// Every call of an open request that can fail: result, last call, remaining state and recovery.
#include "support/CameraHandlerTest.h"

namespace {

using scripted::Answer;
using scripted::Fails;
using scripted::SFalse;
using scripted::SucceedsWithNull;
using support::CameraHandlerTest;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAreArray;

// State that a failed open leaves; each stage includes the previous ones.
enum class Held { kNothing, kEncoder, kPool, kControl, kGraph, kCamera, kBothFilters, kFormat, kOpen };

std::vector<std::string> Labels(Held held) {
  std::vector<std::string> labels;
  const auto add = [&](Held from, std::initializer_list<const char*> more) {
    if (held >= from) {
      labels.insert(labels.end(), more.begin(), more.end());
    }
  };
  add(Held::kEncoder, {"encoder"});
  add(Held::kPool, {"frame", "frame", "frame", "frame", "frame"});
  // Only if a close can release it.
  add(Held::kControl, {"pin of the module"});
  if (held == Held::kControl) {
    labels.emplace_back("graph: 1");
  }
  add(Held::kGraph, {"graph: 2"});
  add(Held::kCamera, {"built-in: 1", "built-in.capture: 1"});
  add(Held::kBothFilters, {"grabber: 1", "grabber.in: 1", "grabber.out: 1"});
  add(Held::kFormat, {"current media type"});
  return labels;
}

// Results of a failing call: E_FAIL and S_FALSE; also success with null; only null.
enum class Failures { kOfCall, kOfCallWithOutput, kOnlyNull };

struct Step {
  const char* name;
  const char* operation;
  unsigned nth;
  Failures failures;
  const char* lastCall;  // of the open
  Held held;
};

constexpr Step kSteps[] = {
    {"EncoderCreation", "VideoEncoder::CreateDefaultEncoder", 1, Failures::kOnlyNull,
     "VideoEncoder::ReleaseEncoder(null)", Held::kNothing},
    {"EncoderSetup", "VideoEncoder::Initialize", 1, Failures::kOfCall, "VideoEncoder::ReleaseEncoder()",
     Held::kNothing},
    {"FrameAllocation", "VideoFrame::AllocBuffer", 1, Failures::kOfCall,
     "VideoFrame::AllocBuffer(640, 480, 3)", Held::kEncoder},
    {"GraphCreation", "CoCreateInstance", 1, Failures::kOfCallWithOutput,
     "CoCreateInstance(CLSID_FilterGraph, 3, IID_IGraphBuilder)", Held::kPool},
    {"ControlInterface", "IUnknown::QueryInterface", 1, Failures::kOfCallWithOutput,
     "IUnknown::QueryInterface(graph, IID_IMediaControl)", Held::kPool},
    {"EventInterface", "IUnknown::QueryInterface", 2, Failures::kOfCallWithOutput,
     "IUnknown::QueryInterface(graph, IID_IMediaEvent)", Held::kControl},
    {"DeviceEnumerator", "CoCreateInstance", 2, Failures::kOfCallWithOutput,
     "CoCreateInstance(CLSID_SystemDeviceEnum, 1, IID_ICreateDevEnum)", Held::kGraph},
    {"ClassEnumerator", "ICreateDevEnum::CreateClassEnumerator", 1, Failures::kOfCallWithOutput,
     "ICreateDevEnum::CreateClassEnumerator(CLSID_VideoInputDeviceCategory, 0)", Held::kGraph},
    {"CameraBinding", "IMoniker::BindToObject", 1, Failures::kOfCall,
     "IMoniker::BindToObject(built-in, IID_IBaseFilter)", Held::kGraph},
    {"CameraBinding", "IMoniker::BindToObject", 1, Failures::kOnlyNull, "IFilterGraph::AddFilter(null, null)",
     Held::kGraph},
    {"AddingTheCamera", "IFilterGraph::AddFilter", 1, Failures::kOfCall,
     "IFilterGraph::AddFilter(built-in, null)", Held::kGraph},
    {"GrabberCreation", "CoCreateInstance", 3, Failures::kOfCallWithOutput,
     "CoCreateInstance(CLSID_SampleGrabber, 1, IID_IBaseFilter)", Held::kCamera},
    {"GrabberInterface", "IUnknown::QueryInterface", 3, Failures::kOfCallWithOutput,
     "IUnknown::QueryInterface(grabber, IID_ISampleGrabber)", Held::kCamera},
    {"GrabberMediaType", "ISampleGrabber::SetMediaType", 1, Failures::kOfCall,
     "ISampleGrabber::SetMediaType(MEDIATYPE_Video, MEDIASUBTYPE_YUY2, FORMAT_VideoInfo, cbFormat 0)",
     Held::kCamera},
    {"GrabberCallback", "ISampleGrabber::SetCallback", 1, Failures::kOfCall, "ISampleGrabber::SetCallback(1)",
     Held::kCamera},
    {"GrabberBuffering", "ISampleGrabber::SetBufferSamples", 1, Failures::kOfCall,
     "ISampleGrabber::SetBufferSamples(1)", Held::kCamera},
    {"GrabberOneShot", "ISampleGrabber::SetOneShot", 1, Failures::kOfCall, "ISampleGrabber::SetOneShot(1)",
     Held::kCamera},
    {"AddingTheGrabber", "IFilterGraph::AddFilter", 2, Failures::kOfCall,
     "IFilterGraph::AddFilter(grabber, Grabber)", Held::kCamera},
    {"CameraPins", "IBaseFilter::EnumPins", 1, Failures::kOfCallWithOutput, "IBaseFilter::EnumPins(built-in)",
     Held::kBothFilters},
    {"CameraPin", "IEnumPins::Next", 1, Failures::kOfCallWithOutput,
     "IEnumPins::Next(built-in pin enumerator)", Held::kBothFilters},
    {"StreamConfiguration", "IUnknown::QueryInterface", 4, Failures::kOfCallWithOutput,
     "IUnknown::QueryInterface(built-in.capture, IID_IAMStreamConfig)", Held::kBothFilters},
    {"CurrentFormat", "IAMStreamConfig::GetFormat", 1, Failures::kOfCallWithOutput,
     "IAMStreamConfig::GetFormat(built-in.capture)", Held::kBothFilters},
    {"SettingTheFormat", "IAMStreamConfig::SetFormat", 1, Failures::kOfCall,
     "IAMStreamConfig::SetFormat(built-in.capture, MEDIASUBTYPE_YUY2, 640x480, 333333)", Held::kFormat},
    {"GrabberPins", "IBaseFilter::EnumPins", 2, Failures::kOfCallWithOutput, "IBaseFilter::EnumPins(grabber)",
     Held::kFormat},
    {"Connection", "IGraphBuilder::Connect", 1, Failures::kOfCall,
     "IGraphBuilder::Connect(built-in.capture, grabber.in)", Held::kFormat},
    {"Run", "IMediaControl::Run", 1, Failures::kOfCall, "IMediaControl::Run()", Held::kOpen},
};

struct FailingStep {
  Step step;
  std::string name;
  Answer answer;
};

void PrintTo(const FailingStep& failing, std::ostream* out) { *out << failing.name; }

std::vector<FailingStep> FailingSteps() {
  std::vector<FailingStep> all;
  for (const Step& step : kSteps) {
    const std::string name = step.name;
    if (step.failures != Failures::kOnlyNull) {
      all.push_back({step, name + "Fails", Fails()});
      all.push_back({step, name + "ReturnsFalse", SFalse()});
    }
    if (step.failures != Failures::kOfCall) {
      all.push_back({step, name + "ReturnsNull", SucceedsWithNull()});
    }
  }
  return all;
}

class OpenFailure : public CameraHandlerTest, public ::testing::WithParamInterface<FailingStep> {
 protected:
  void SetUp() override {
    CameraHandlerTest::SetUp();
    QueryAndRelease();
    if (held >= Held::kFormat) {
      ExpectFormatLeft();
    }
    const Step& step = GetParam().step;
    platform.AnswersNth(step.operation, step.nth, GetParam().answer);
    EXPECT_EQ(Open(), held < Held::kPool ? NUVEQ_CAMERA_ENCODER_FAILED : NUVEQ_CAMERA_GRAPH_FAILED);
  }
  void ExpectASession() {
    ExpectFormatLeft();
    EXPECT_EQ(Open(), NUVEQ_CAMERA_OK);
    EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  }

  const Held held = GetParam().step.held;
};

TEST_P(OpenFailure, EndsTheOpenAndKeepsTheStateForAClose) {
  std::vector<std::string> calls = platform.Calls();
  // The calls after the failed one only free memory.
  while (calls.back() == "CoTaskMemFree()") {
    calls.pop_back();
  }
  EXPECT_EQ(calls.back(), GetParam().step.lastCall);
  EXPECT_THAT(platform.Alive(), UnorderedElementsAreArray(Labels(held)));
  // The open is reported before the graph runs.
  EXPECT_THAT(platform.Journal(), Contains("status callback \"0\" 1 4").Times(held == Held::kOpen ? 1 : 0));
}

TEST_P(OpenFailure, RefusesTheNextOpenWhileThePoolExists) {
  platform.ClearJournal();
  if (held < Held::kPool) {
    ExpectASession();
  } else if (held < Held::kOpen) {
    EXPECT_EQ(Open(), NUVEQ_CAMERA_ENCODER_FAILED);
    // The encoder is replaced; the graph is unchanged.
    EXPECT_THAT(platform.Calls(), ElementsAre("VideoEncoder::CreateDefaultEncoder()",
                                              "VideoEncoder::Initialize(640x480, 30 fps, colour space 3)",
                                              "VideoEncoder::ReleaseEncoder()"));
    EXPECT_THAT(platform.Alive(), UnorderedElementsAreArray(Labels(held)));
  } else {
    EXPECT_EQ(Open(), NUVEQ_CAMERA_ALREADY_OPEN);
    EXPECT_THAT(platform.Calls(), IsEmpty());
  }
}

TEST_P(OpenFailure, AllowsOpenAfterClose) {
  platform.ClearJournal();
  const bool hasEvent = held >= Held::kGraph;
  EXPECT_EQ(Close(), hasEvent ? NUVEQ_CAMERA_CLOSED : NUVEQ_CAMERA_CLOSE_INCOMPLETE);
  // Only a complete graph is stopped. Without a control interface the close has no effect.
  EXPECT_EQ(platform.CallCount("IMediaControl::Stop"), held == Held::kOpen ? 1U : 0U);
  EXPECT_EQ(platform.CallCount("IMediaEvent::WaitForCompletion"), hasEvent ? 1U : 0U);
  EXPECT_THAT(platform.Journal(),
              Contains("status callback \"0\" 1 3").Times(held >= Held::kControl ? 1 : 0));
  if (held == Held::kPool) {
    // Nothing can free the pool, which makes every open fail.
    EXPECT_EQ(Open(), NUVEQ_CAMERA_ENCODER_FAILED);
  } else {
    ExpectASession();
  }
}

INSTANTIATE_TEST_SUITE_P(Each, OpenFailure, ::testing::ValuesIn(FailingSteps()),
                         [](const auto& tested) { return tested.param.name; });

}  // namespace
