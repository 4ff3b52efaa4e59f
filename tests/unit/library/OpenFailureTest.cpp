// Every failure of an open request: result, log lines, last platform call, remaining state and recovery.
#include "support/CameraHandlerTest.h"

namespace {

using scripted::Answer;
using scripted::Fails;
using scripted::FailsWithOutput;
using scripted::SFalse;
using scripted::SucceedsWithNull;
using support::CameraHandlerTest;
using support::ErrorLine;
using support::WarnLine;
using ::testing::ElementsAreArray;
using ::testing::UnorderedElementsAreArray;

// State that a failed open may leave; each stage includes the previous ones.
enum class Held { kNothing, kEncoder, kPool, kControl, kGraph, kCamera, kBoth };

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
  add(Held::kBoth, {"grabber: 1", "grabber.in: 1", "grabber.out: 1"});
  return labels;
}

struct Case {
  std::string name;
  std::string operation;
  unsigned nth;
  Answer answer;
  int result;
  std::vector<std::string> errors;  // after "Start open camera"
  std::string lastCall;
  Held held;
  bool asksForFormat = false;  // the camera's current format was read
};

void PrintTo(const Case& c, std::ostream* out) { *out << c.name; }

std::string Text(const std::string& function, const std::string& text) {
  return "[CameraOperator]" + text + "(CameraOperator::" + function + ")";
}

// Adds the log lines that surround a failure inside OpenCamera.
std::vector<std::string> InOpenCamera(std::vector<std::string> inner) {
  inner.insert(inner.begin(),
               ErrorLine(Text("OpenCamera", "start OpenCamera, width:640, height:480, fps:30")));
  inner.push_back(ErrorLine(754, Text("OpenCameraInner", "fail to open camera")));
  return inner;
}

std::vector<std::string> InAddDeviceFilter(std::vector<std::string> inner) {
  inner.push_back(ErrorLine(Text("OpenCamera", "AddDeviceFilter fail.")));
  return InOpenCamera(inner);
}

std::vector<std::string> InBindDeviceFilter(std::vector<std::string> inner) {
  inner.push_back(ErrorLine(Text("AddDeviceFilter", "BindDeviceFilter fail.")));
  return InAddDeviceFilter(inner);
}

std::vector<std::string> InAddSampleGrabber(std::vector<std::string> inner) {
  inner.push_back(ErrorLine(Text("OpenCamera", "AddSampleGrabberFilter fail.")));
  return InOpenCamera(inner);
}

std::vector<std::string> InConfigSampleGrabber(const std::string& text) {
  return InAddSampleGrabber({ErrorLine(Text("ConfigSampleGrabber", text)),
                             ErrorLine(Text("AddSampleGrabberFilter", "ConfigSampleGrabber fail."))});
}

std::vector<std::string> InInitCameraBasicInfo(const std::string& text) {
  return InOpenCamera({ErrorLine(Text("InitCameraBasicInfo", text)),
                       ErrorLine(Text("OpenCamera", "InitCameraBasicInfo fail. cameraId:0"))});
}

const std::string kSetParameter = Text("SetCameraFormat", "Set camera parameter, (640,480,30,844715353)");

std::vector<Case> Cases() {
  const std::string graphCall = "CoCreateInstance(CLSID_FilterGraph, 3, IID_IGraphBuilder)";
  const std::string devicesCall = "CoCreateInstance(CLSID_SystemDeviceEnum, 1, IID_ICreateDevEnum)";
  const std::string classCall = "ICreateDevEnum::CreateClassEnumerator(CLSID_VideoInputDeviceCategory, 0)";
  const std::string grabberCall = "CoCreateInstance(CLSID_SampleGrabber, 1, IID_IBaseFilter)";
  const std::string bindCall = "IMoniker::BindToObject(built-in, IID_IBaseFilter)";
  const std::string typeCall =
      "ISampleGrabber::SetMediaType(MEDIATYPE_Video, MEDIASUBTYPE_YUY2, FORMAT_VideoInfo, cbFormat 0)";
  const std::string setFormatCall =
      "IAMStreamConfig::SetFormat(built-in.capture, MEDIASUBTYPE_YUY2, 640x480, 333333)";
  const std::vector<std::string> noEncoder = {
      ErrorLine(537, Text("InitVideoEncoder", "init video encoder failed")),
      ErrorLine(743, Text("OpenCameraInner", "fail to init video encoder"))};
  return {
      {"EncoderNotMade", "VideoEncoder::CreateDefaultEncoder", 1, SucceedsWithNull(), -1004, noEncoder,
       "VideoEncoder::ReleaseEncoder(null)", Held::kNothing},
      {"EncoderRefusesParameters", "VideoEncoder::Initialize", 1, Fails(), -1004, noEncoder,
       "VideoEncoder::ReleaseEncoder()", Held::kNothing},
      {"FirstFrameNotAllocated",
       "VideoFrame::AllocBuffer",
       1,
       Fails(),
       -1004,
       {ErrorLine(546, Text("InitVideoEncoder", "AllocBuffer fail.")),
        ErrorLine(743, Text("OpenCameraInner", "fail to init video encoder"))},
       "VideoFrame::AllocBuffer(640, 480, 3)",
       Held::kEncoder},

      {"GraphNotMade", "CoCreateInstance", 1, Fails(), -1001,
       InInitCameraBasicInfo("CoCreateInstance fail, error: -2147467259"), graphCall, Held::kPool},
      {"GraphAnswersFalse", "CoCreateInstance", 1, SFalse(), -1001,
       InInitCameraBasicInfo("CoCreateInstance fail, error: 1"), graphCall, Held::kPool},
      {"GraphIsNull", "CoCreateInstance", 1, SucceedsWithNull(), -1001,
       InInitCameraBasicInfo("CoCreateInstance fail, error: 0"), graphCall, Held::kPool},
      {"NoControlInterface", "IUnknown::QueryInterface", 1, Fails(E_NOINTERFACE), -1001,
       InInitCameraBasicInfo("QueryInterface IID_IMediaControl fail, error: -2147467262"),
       "IUnknown::QueryInterface(graph, IID_IMediaControl)", Held::kPool},
      {"ControlInterfaceAnswersFalse", "IUnknown::QueryInterface", 1, SFalse(), -1001,
       InInitCameraBasicInfo("QueryInterface IID_IMediaControl fail, error: 1"),
       "IUnknown::QueryInterface(graph, IID_IMediaControl)", Held::kPool},
      {"ControlInterfaceComesWithAFailure", "IUnknown::QueryInterface", 1, FailsWithOutput(), -1001,
       InInitCameraBasicInfo("QueryInterface IID_IMediaControl fail, error: -2147467259"),
       "IUnknown::QueryInterface(graph, IID_IMediaControl)", Held::kPool},
      {"ControlInterfaceIsNull", "IUnknown::QueryInterface", 1, SucceedsWithNull(), -1001,
       InInitCameraBasicInfo("QueryInterface IID_IMediaControl fail, error: 0"),
       "IUnknown::QueryInterface(graph, IID_IMediaControl)", Held::kPool},
      {"NoEventInterface", "IUnknown::QueryInterface", 2, Fails(E_NOINTERFACE), -1001,
       InInitCameraBasicInfo("QueryInterface IID_IMediaEvent fail, error: -2147467262"),
       "IUnknown::QueryInterface(graph, IID_IMediaEvent)", Held::kControl},
      {"EventInterfaceAnswersFalse", "IUnknown::QueryInterface", 2, SFalse(), -1001,
       InInitCameraBasicInfo("QueryInterface IID_IMediaEvent fail, error: 1"),
       "IUnknown::QueryInterface(graph, IID_IMediaEvent)", Held::kControl},
      {"EventInterfaceComesWithAFailure", "IUnknown::QueryInterface", 2, FailsWithOutput(), -1001,
       InInitCameraBasicInfo("QueryInterface IID_IMediaEvent fail, error: -2147467259"),
       "IUnknown::QueryInterface(graph, IID_IMediaEvent)", Held::kControl},
      {"EventInterfaceIsNull", "IUnknown::QueryInterface", 2, SucceedsWithNull(), -1001,
       InInitCameraBasicInfo("QueryInterface IID_IMediaEvent fail, error: 0"),
       "IUnknown::QueryInterface(graph, IID_IMediaEvent)", Held::kControl},

      {"DeviceEnumeratorNotMade", "CoCreateInstance", 2, Fails(), -1001,
       InBindDeviceFilter(
           {ErrorLine(286, Text("BindDeviceFilter", "fail to create enumlate instance, error:-2147467259"))}),
       devicesCall, Held::kGraph},
      {"DeviceEnumeratorIsNull", "CoCreateInstance", 2, SucceedsWithNull(), -1001,
       InBindDeviceFilter(
           {ErrorLine(286, Text("BindDeviceFilter", "fail to create enumlate instance, error:0"))}),
       devicesCall, Held::kGraph},
      {"CategoryNotEnumerated", "ICreateDevEnum::CreateClassEnumerator", 1, Fails(), -1001,
       InBindDeviceFilter(
           {ErrorLine(294, Text("BindDeviceFilter", "Enumerate device fail, error: -2147467259"))}),
       classCall, Held::kGraph},
      {"CategoryIsEmpty", "ICreateDevEnum::CreateClassEnumerator", 1, SFalse(), -1001,
       InBindDeviceFilter({ErrorLine(294, Text("BindDeviceFilter", "Enumerate device fail, error: 1"))}),
       classCall, Held::kGraph},
      {"CategoryEnumeratorIsNull", "ICreateDevEnum::CreateClassEnumerator", 1, SucceedsWithNull(), -1001,
       InBindDeviceFilter({ErrorLine(294, Text("BindDeviceFilter", "Enumerate device fail, error: 0"))}),
       classCall, Held::kGraph},
      {"CameraNotBound", "IMoniker::BindToObject", 1, Fails(E_ACCESSDENIED), -1001,
       InBindDeviceFilter({ErrorLine(308, Text("BindDeviceFilter", "BindFilter fail. cameraIndex:0"))}),
       bindCall, Held::kGraph},
      {"CameraBoundToNull", "IMoniker::BindToObject", 1, SucceedsWithNull(), -1001,
       InAddDeviceFilter({ErrorLine(Text("AddDeviceFilter", "AddFilter fail, error: -2147467261"))}),
       "IFilterGraph::AddFilter(null, null)", Held::kGraph},
      {"CameraNotAdded", "IFilterGraph::AddFilter", 1, Fails(), -1001,
       InAddDeviceFilter({ErrorLine(Text("AddDeviceFilter", "AddFilter fail, error: -2147467259"))}),
       "IFilterGraph::AddFilter(built-in, null)", Held::kGraph},
      {"AddingTheCameraAnswersFalse", "IFilterGraph::AddFilter", 1, SFalse(), -1001,
       InAddDeviceFilter({ErrorLine(Text("AddDeviceFilter", "AddFilter fail, error: 1"))}),
       "IFilterGraph::AddFilter(built-in, null)", Held::kGraph},

      {"GrabberNotMade", "CoCreateInstance", 3, Fails(REGDB_E_CLASSNOTREG), -1001,
       InAddSampleGrabber({ErrorLine(
           Text("AddSampleGrabberFilter", "CoCreateInstance sampleGrabberFilter fail, error: -2147221164"))}),
       grabberCall, Held::kCamera},
      {"GrabberIsNull", "CoCreateInstance", 3, SucceedsWithNull(), -1001,
       InAddSampleGrabber({ErrorLine(
           Text("AddSampleGrabberFilter", "CoCreateInstance sampleGrabberFilter fail, error: 0"))}),
       grabberCall, Held::kCamera},
      {"NoGrabberInterface", "IUnknown::QueryInterface", 3, Fails(E_NOINTERFACE), -1001,
       InConfigSampleGrabber("QueryInterface IID_ISampleGrabber fail, error: -2147467262"),
       "IUnknown::QueryInterface(grabber, IID_ISampleGrabber)", Held::kCamera},
      {"GrabberInterfaceIsNull", "IUnknown::QueryInterface", 3, SucceedsWithNull(), -1001,
       InConfigSampleGrabber("QueryInterface IID_ISampleGrabber fail, error: 0"),
       "IUnknown::QueryInterface(grabber, IID_ISampleGrabber)", Held::kCamera},
      {"GrabberRefusesMediaType", "ISampleGrabber::SetMediaType", 1, SFalse(), -1001,
       InConfigSampleGrabber("SetMediaType fail, error: 1"), typeCall, Held::kCamera},
      {"GrabberRefusesCallback", "ISampleGrabber::SetCallback", 1, Fails(), -1001,
       InConfigSampleGrabber("fail to set grabber callback, error: -2147467259"),
       "ISampleGrabber::SetCallback(1)", Held::kCamera},
      {"GrabberRefusesBuffering", "ISampleGrabber::SetBufferSamples", 1, Fails(), -1001,
       InConfigSampleGrabber("fail to set buffer sample, error: -2147467259"),
       "ISampleGrabber::SetBufferSamples(1)", Held::kCamera},
      {"GrabberRefusesOneShot", "ISampleGrabber::SetOneShot", 1, Fails(), -1001,
       InConfigSampleGrabber("fail to set one shot, error: -2147467259"), "ISampleGrabber::SetOneShot(1)",
       Held::kCamera},
      {"GrabberNotAdded", "IFilterGraph::AddFilter", 2, Fails(), -1001,
       InAddSampleGrabber({ErrorLine(Text("AddSampleGrabberFilter", "AddFilter fail, error: -2147467259"))}),
       "IFilterGraph::AddFilter(grabber, Grabber)", Held::kCamera},

      {"CameraPinsNotEnumerated", "IBaseFilter::EnumPins", 1, Fails(), -1001,
       InOpenCamera({ErrorLine(Text("QueryFilterPin", "EnumPins fail, error: -2147467259"))}),
       "IBaseFilter::EnumPins(built-in)", Held::kBoth},
      {"CameraPinEnumeratorIsNull", "IBaseFilter::EnumPins", 1, SucceedsWithNull(), -1001,
       InOpenCamera({ErrorLine(Text("QueryFilterPin", "EnumPins fail, error: 0"))}),
       "IBaseFilter::EnumPins(built-in)", Held::kBoth},
      {"CameraPinEnumerationBreaksOff", "IEnumPins::Next", 1, Fails(), -1001,
       InOpenCamera({ErrorLine(Text("QueryFilterPin", "QueryFilterPin fail."))}),
       "IEnumPins::Next(built-in pin enumerator)", Held::kBoth},
      {"NoStreamConfiguration", "IUnknown::QueryInterface", 4, Fails(E_NOINTERFACE), -1001,
       InOpenCamera({ErrorLine(Text("SetCameraFormat", "fail to get amstream config, error: -2147467262"))}),
       "IUnknown::QueryInterface(built-in.capture, IID_IAMStreamConfig)", Held::kBoth},
      {"StreamConfigurationIsNull", "IUnknown::QueryInterface", 4, SucceedsWithNull(), -1001,
       InOpenCamera({ErrorLine(Text("SetCameraFormat", "fail to get amstream config, error: 0"))}),
       "IUnknown::QueryInterface(built-in.capture, IID_IAMStreamConfig)", Held::kBoth},
      {"NoCurrentFormat", "IAMStreamConfig::GetFormat", 1, Fails(), -1001,
       InOpenCamera({ErrorLine(Text("SetCameraFormat", "fail to get camera parameter, error: -2147467259"))}),
       "IAMStreamConfig::GetFormat(built-in.capture)", Held::kBoth},
      {"CurrentFormatIsNull", "IAMStreamConfig::GetFormat", 1, SucceedsWithNull(), -1001,
       InOpenCamera({ErrorLine(Text("SetCameraFormat", "fail to get camera parameter, error: 0"))}),
       "IAMStreamConfig::GetFormat(built-in.capture)", Held::kBoth},
      {"FormatRefused", "IAMStreamConfig::SetFormat", 1, Fails(E_INVALIDARG), -1001,
       InOpenCamera({ErrorLine(kSetParameter),
                     ErrorLine(Text("SetCameraFormat", "Set camera parameter fail, error:-2147024809"))}),
       setFormatCall, Held::kBoth, true},
      {"SettingTheFormatAnswersFalse", "IAMStreamConfig::SetFormat", 1, SFalse(), -1001,
       InOpenCamera({ErrorLine(kSetParameter),
                     ErrorLine(Text("SetCameraFormat", "Set camera parameter fail, error:1"))}),
       setFormatCall, Held::kBoth, true},
      {"GrabberPinsNotEnumerated", "IBaseFilter::EnumPins", 2, SFalse(), -1001,
       InOpenCamera({ErrorLine(kSetParameter), ErrorLine(Text("QueryFilterPin", "EnumPins fail, error: 1"))}),
       "IBaseFilter::EnumPins(grabber)", Held::kBoth, true},
      {"GrabberAnswersFalse", "CoCreateInstance", 3, SFalse(), -1001,
       InAddSampleGrabber({ErrorLine(
           Text("AddSampleGrabberFilter", "CoCreateInstance sampleGrabberFilter fail, error: 1"))}),
       grabberCall, Held::kCamera},
      {"GrabberInterfaceAnswersFalse", "IUnknown::QueryInterface", 3, SFalse(), -1001,
       InConfigSampleGrabber("QueryInterface IID_ISampleGrabber fail, error: 1"),
       "IUnknown::QueryInterface(grabber, IID_ISampleGrabber)", Held::kCamera},
      {"SettingTheCallbackAnswersFalse", "ISampleGrabber::SetCallback", 1, SFalse(), -1001,
       InConfigSampleGrabber("fail to set grabber callback, error: 1"), "ISampleGrabber::SetCallback(1)",
       Held::kCamera},
      {"SettingTheBufferingAnswersFalse", "ISampleGrabber::SetBufferSamples", 1, SFalse(), -1001,
       InConfigSampleGrabber("fail to set buffer sample, error: 1"), "ISampleGrabber::SetBufferSamples(1)",
       Held::kCamera},
      {"SettingOneShotAnswersFalse", "ISampleGrabber::SetOneShot", 1, SFalse(), -1001,
       InConfigSampleGrabber("fail to set one shot, error: 1"), "ISampleGrabber::SetOneShot(1)",
       Held::kCamera},
      {"AddingTheGrabberAnswersFalse", "IFilterGraph::AddFilter", 2, SFalse(), -1001,
       InAddSampleGrabber({ErrorLine(Text("AddSampleGrabberFilter", "AddFilter fail, error: 1"))}),
       "IFilterGraph::AddFilter(grabber, Grabber)", Held::kCamera},
      {"StreamConfigurationAnswersFalse", "IUnknown::QueryInterface", 4, SFalse(), -1001,
       InOpenCamera({ErrorLine(Text("SetCameraFormat", "fail to get amstream config, error: 1"))}),
       "IUnknown::QueryInterface(built-in.capture, IID_IAMStreamConfig)", Held::kBoth},
      {"CurrentFormatAnswersFalse", "IAMStreamConfig::GetFormat", 1, SFalse(), -1001,
       InOpenCamera({ErrorLine(Text("SetCameraFormat", "fail to get camera parameter, error: 1"))}),
       "IAMStreamConfig::GetFormat(built-in.capture)", Held::kBoth},
      {"ConnectingThePinsAnswersFalse", "IGraphBuilder::Connect", 1, SFalse(), -1001,
       InOpenCamera(
           {ErrorLine(kSetParameter), ErrorLine(Text("OpenCamera", "fail to Connect pin, error: 1"))}),
       "IGraphBuilder::Connect(built-in.capture, grabber.in)", Held::kBoth, true},
      {"PinsNotConnected", "IGraphBuilder::Connect", 1, Fails(VFW_E_CANNOT_CONNECT), -1001,
       InOpenCamera({ErrorLine(kSetParameter),
                     ErrorLine(Text("OpenCamera", "fail to Connect pin, error: -2147220969"))}),
       "IGraphBuilder::Connect(built-in.capture, grabber.in)", Held::kBoth, true},
  };
}

class OpenFailure : public CameraHandlerTest, public ::testing::WithParamInterface<Case> {};

// Returns the last call except for those that free memory.
std::string LastCall(std::vector<std::string> calls) {
  while (!calls.empty() && calls.back() == "CoTaskMemFree()") {
    calls.pop_back();
  }
  return calls.empty() ? std::string() : calls.back();
}

TEST_P(OpenFailure, HasDocumentedResultLogAndState) {
  const Case& c = GetParam();
  QueryAndRelease();
  if (c.asksForFormat) {
    ExpectFormatLeft();
  }
  platform.AnswersNth(c.operation, c.nth, c.answer);
  EXPECT_EQ(Open(), c.result);

  std::vector<std::string> lines = {WarnLine(708, Text("OpenCameraInner", "Start open camera"))};
  lines.insert(lines.end(), c.errors.begin(), c.errors.end());
  EXPECT_THAT(LogLines(), ElementsAreArray(lines));
  EXPECT_EQ(LastCall(platform.Calls()), c.lastCall);
  EXPECT_THAT(platform.Journal(),
              ::testing::Not(::testing::Contains(::testing::HasSubstr("status callback"))));

  std::vector<std::string> held = Labels(c.held);
  if (c.asksForFormat) {
    held.emplace_back("current media type");
  }
  EXPECT_THAT(platform.Alive(), UnorderedElementsAreArray(held));
}

TEST_P(OpenFailure, RefusesTheNextOpenWhileThePoolExists) {
  const Case& c = GetParam();
  QueryAndRelease();
  if (c.asksForFormat) {
    ExpectFormatLeft();
  }
  platform.AnswersNth(c.operation, c.nth, c.answer);
  EXPECT_EQ(Open(), c.result);
  platform.ClearJournal();
  if (c.held < Held::kPool) {
    ExpectFormatLeft();
    EXPECT_EQ(Open(), 0);
    EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
    return;
  }
  EXPECT_EQ(Open(), NUVEQ_CAMERA_ENCODER_FAILED);
  EXPECT_THAT(LogLines(),
              ::testing::ElementsAre(WarnLine(708, Text("OpenCameraInner", "Start open camera")),
                                     ErrorLine(546, Text("InitVideoEncoder", "AllocBuffer fail.")),
                                     ErrorLine(743, Text("OpenCameraInner", "fail to init video encoder"))));
  // The encoder is replaced; the graph is unchanged.
  EXPECT_THAT(platform.Calls(),
              ::testing::ElementsAre("VideoEncoder::CreateDefaultEncoder()",
                                     "VideoEncoder::Initialize(640x480, 30 fps, colour space 3)",
                                     "VideoEncoder::ReleaseEncoder()"));
}

TEST_P(OpenFailure, AllowsOpenAfterClose) {
  const Case& c = GetParam();
  QueryAndRelease();
  if (c.asksForFormat) {
    ExpectFormatLeft();
  }
  platform.AnswersNth(c.operation, c.nth, c.answer);
  EXPECT_EQ(Open(), c.result);
  platform.ClearJournal();

  const bool hasControl = c.held >= Held::kControl;
  const bool hasEvent = c.held >= Held::kGraph;
  EXPECT_EQ(Close(), hasEvent ? 1 : 0);
  // The graph never ran, so it is not stopped. Without a control interface the close has no effect.
  EXPECT_EQ(platform.CallCount("IMediaControl::Stop"), 0U);
  EXPECT_EQ(platform.CallCount("IMediaEvent::WaitForCompletion"), hasEvent ? 1U : 0U);
  EXPECT_THAT(
      platform.Journal(),
      ::testing::Contains(::testing::StartsWith("status callback \"0\" 1 3")).Times(hasControl ? 1 : 0));

  platform.ClearJournal();
  if (c.held == Held::kPool) {
    // Without a graph a close has no effect, and the remaining pool makes every open fail.
    EXPECT_EQ(Open(), NUVEQ_CAMERA_ENCODER_FAILED);
    EXPECT_THAT(LogLines(),
                ::testing::Contains(ErrorLine(546, Text("InitVideoEncoder", "AllocBuffer fail."))));
  } else {
    ExpectFormatLeft();
    EXPECT_EQ(Open(), 0);
    EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  }
}

INSTANTIATE_TEST_SUITE_P(Each, OpenFailure, ::testing::ValuesIn(Cases()),
                         [](const auto& tested) { return tested.param.name; });

}  // namespace
