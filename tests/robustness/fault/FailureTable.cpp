#include "FailureTable.h"

#include <map>
#include <set>

#include "NUVEQCameraHandler.h"

namespace fault {

namespace {

using Events = std::vector<std::string>;
using Rows = std::vector<Row>;

template <typename T>
std::vector<T> operator+(std::vector<T> list, const std::vector<T>& more) {
  list.insert(list.end(), more.begin(), more.end());
  return list;
}

const std::optional<Outcome> kNoEffect;

// Enumerates the capture devices up to the built-in camera.
Rows EnumerateDevices(const Outcome& noEnumerator, const Outcome& noCategory, const Outcome& notFound) {
  return {
      {"CoCreateInstance(CLSID_SystemDeviceEnum, 1, IID_ICreateDevEnum)", noEnumerator},
      {"ICreateDevEnum::CreateClassEnumerator", noCategory},
      {"IEnumMoniker::Reset", kNoEffect},
      // The plug-in camera, which is listed first.
      {"IEnumMoniker::Next", notFound, kNoEffect},
      {"CoGetMalloc", kNoEffect},
      {"CreateBindCtx", kNoEffect},
      {"IMoniker::GetDisplayName(plug-in)", kNoEffect},
      // The built-in camera.
      {"IEnumMoniker::Next", notFound},
      {"CoGetMalloc", notFound},
      {"CreateBindCtx", notFound},
      {"IMoniker::GetDisplayName(built-in)", notFound},
  };
}

// --- The query ---

// A device that cannot be read is skipped. Without the built-in camera the query fails.
Outcome NoCamera(const Events& events = {}) {
  return {NUVEQ_CAMERA_NOT_USABLE,
          events + Events{"report camera driver error", "action callback null 1 type 7 \"440\"",
                          "Can not find PC Camera", "count 99"}};
}

Outcome Unreadable(const Events& events) {
  return {NUVEQ_CAMERA_NOT_USABLE, events + Events{"fail to get allAbilities -1000", "count 1"}};
}

Outcome NotBound(const std::string& event) { return Unreadable({event, "BindFilter fail, cameraIndex: 0"}); }

// The camera is not among the devices any more.
Outcome Disconnected() {
  return Unreadable({"invalid para, devFilter is nullptr", "EnumPins fail, cameraIndex: 0"});
}

Outcome NoMemory() { return {NUVEQ_CAMERA_NO_MEMORY, {"fail to get allAbilities -3", "count 1"}}; }

// The query succeeds with other rates and sizes.
Outcome Lists(const std::string& ratesAndSizes, const Events& events = {}) {
  return {NUVEQ_CAMERA_OK, events + Events{"count 1, id 0" + ratesAndSizes}};
}

const std::string kYuy2 = "ParseMediaType success, width: 64, height:48,fps:15,subType:844715353";
const std::string kPlugIn = "ParseMediaType success, width: 1920, height:1080,fps:60,subType:1196444237";

// Finds the USB device that is not removable.
Rows SelectDevice() {
  return {
      {"SetupDiGetClassDevsW", NoCamera()},
      // The plug-in camera.
      {"SetupDiEnumDeviceInterfaces", NoCamera()},
      {"SetupDiGetDeviceInterfaceDetailW", kNoEffect},
      {"SetupDiEnumDeviceInfo", kNoEffect},
      {"CM_Get_DevNode_Status", kNoEffect},
      // The built-in camera. Its interface detail is not used. An empty id is part of every name, so
      // that the first camera is selected.
      {"SetupDiEnumDeviceInterfaces", NoCamera()},
      {"SetupDiGetDeviceInterfaceDetailW", NoCamera(), kNoEffect},
      {"SetupDiEnumDeviceInfo", NoCamera()},
      {"CM_Get_DevNode_Status", NoCamera()},
      {"CM_Get_Child", NoCamera()},
      {"CM_Get_Device_IDA", NoCamera(), Lists(", 60000, 1920x1080", {kPlugIn})},
      // The end of the enumeration.
      {"SetupDiEnumDeviceInterfaces", kNoEffect},
      {"SetupDiDestroyDeviceInfoList", kNoEffect},
  };
}

Rows ReadCamera() {
  return {
      {"IMoniker::BindToObject", NotBound("BindFilter fail. cameraIndex:0"), Disconnected()},

      {"IBaseFilter::EnumPins", Unreadable({"fail to enum pins, error: %", "EnumPins fail, cameraIndex: 0"})},
      {"IEnumPins::Next", Lists("")},
      {"IEnumPins::Next", kNoEffect},
      {"IPin::QueryPinInfo", Unreadable({"QueryPinInfo fail, error: %", "fail to query camera pin info."}),
       kNoEffect},
      {"IPin::EnumMediaTypes",
       Unreadable({"EnumMediaTypes fail, error: %", "fail to query camera pin info."})},
      {"IEnumMediaTypes::Next", Lists(""), Lists(", 15000, 64x48", {"mediaType is nullptr.", kYuy2})},
      {"IEnumMediaTypes::Next", Lists(", 30000, 64x48"), Lists(", 30000, 64x48", {"mediaType is nullptr."})},
      {"IEnumMediaTypes::Next", kNoEffect},

      // Record, id, ability, rates, sizes. The records are allocated even if the camera cannot be
      // read.
      {"AllocateHostBlock(48)", NoMemory()},
      {"AllocateHostBlock(64)", NoMemory()},
      {"AllocateHostBlock(32)", NoMemory()},
      {"AllocateHostBlock(16)", Unreadable({})},
      {"AllocateHostBlock(8)", NoMemory()},
  };
}

// --- The open ---

Outcome NoEncoder(const std::string& event, Left left = Left::kNothing) {
  return {NUVEQ_CAMERA_ENCODER_FAILED, {event, "fail to init video encoder"}, left};
}

Outcome NotOpened(const Events& events, Left left = Left::kGrabber) {
  return {NUVEQ_CAMERA_GRAPH_FAILED, events + Events{"fail to open camera"}, left};
}

Outcome NoGraph(const std::string& event, Left left) {
  return NotOpened({event, "InitCameraBasicInfo fail. cameraId:0"}, left);
}

Outcome NoDevice(const Events& events) {
  return NotOpened(events + Events{"AddDeviceFilter fail."}, Left::kGraph);
}

// The camera is not among the devices any more; the graph refuses the null filter.
Outcome NoDeviceToAdd() { return NoDevice({"AddFilter fail, error: -2147467261"}); }

Outcome NoGrabber(const Events& events) {
  return NotOpened(events + Events{"AddSampleGrabberFilter fail."}, Left::kCamera);
}

Outcome NotConfigured(const std::string& event) { return NoGrabber({event, "ConfigSampleGrabber fail."}); }

Rows SetUpEncoder() {
  return {
      {"VideoEncoder::CreateDefaultEncoder", NoEncoder("init video encoder failed")},
      {"VideoEncoder::Initialize", NoEncoder("init video encoder failed")},
  };
}

// A buffer without memory loses its frame.
Rows AllocateBuffers() {
  return Rows(5, {"VideoFrame::AllocBuffer", NoEncoder("AllocBuffer fail.", Left::kEncoder), kNoEffect});
}

Rows CreateGraph() {
  return {
      {"CoCreateInstance(CLSID_FilterGraph, 3, IID_IGraphBuilder)",
       NoGraph("CoCreateInstance fail, error: %", Left::kPool)},
      {"IUnknown::QueryInterface(graph, IID_IMediaControl)",
       NoGraph("QueryInterface IID_IMediaControl fail, error: %", Left::kPool)},
      {"IUnknown::QueryInterface(graph, IID_IMediaEvent)",
       NoGraph("QueryInterface IID_IMediaEvent fail, error: %", Left::kControl)},
  };
}

Rows BuildAndRunGraph() {
  return {
      {"IMoniker::BindToObject", NoDevice({"BindFilter fail. cameraIndex:0", "BindDeviceFilter fail."}),
       NoDeviceToAdd()},
      {"IFilterGraph::AddFilter", NoDevice({"AddFilter fail, error: %"})},

      {"CoCreateInstance(CLSID_SampleGrabber, 1, IID_IBaseFilter)",
       NoGrabber({"CoCreateInstance sampleGrabberFilter fail, error: %"})},
      {"IUnknown::QueryInterface(grabber, IID_ISampleGrabber)",
       NotConfigured("QueryInterface IID_ISampleGrabber fail, error: %")},
      {"ISampleGrabber::SetMediaType", NotConfigured("SetMediaType fail, error: %")},
      {"ISampleGrabber::SetCallback", NotConfigured("fail to set grabber callback, error: %")},
      {"ISampleGrabber::SetBufferSamples", NotConfigured("fail to set buffer sample, error: %")},
      {"ISampleGrabber::SetOneShot", NotConfigured("fail to set one shot, error: %")},
      {"IFilterGraph::AddFilter(grabber, Grabber)", NoGrabber({"AddFilter fail, error: %"})},

      {"IBaseFilter::EnumPins(built-in)", NotOpened({"EnumPins fail, error: %"})},
      {"IEnumPins::Next(built-in pin enumerator)", NotOpened({"QueryFilterPin fail."})},
      {"IPin::QueryDirection(built-in.capture)", NotOpened({"QueryFilterPin fail."})},
      {"IUnknown::QueryInterface(built-in.capture, IID_IAMStreamConfig)",
       NotOpened({"fail to get amstream config, error: %"})},
      {"IAMStreamConfig::GetFormat", NotOpened({"fail to get camera parameter, error: %"})},
      {"IAMStreamConfig::SetFormat", NotOpened({"Set camera parameter fail, error:%"})},
      {"IBaseFilter::EnumPins(grabber)", NotOpened({"EnumPins fail, error: %"})},
      {"IEnumPins::Next(grabber pin enumerator)", NotOpened({"QueryFilterPin fail."})},
      // An unwritten direction means input.
      {"IPin::QueryDirection(grabber.in)", NotOpened({"QueryFilterPin fail."}), kNoEffect},
      {"IGraphBuilder::Connect", NotOpened({"fail to Connect pin, error: %"})},

      {"IMediaControl::Run",
       Outcome{NUVEQ_CAMERA_GRAPH_FAILED, {"fail to update service status, error: %"}, Left::kGrabber}},
      {"IMediaEvent::WaitForCompletion", kNoEffect},
      {"std::thread", Outcome{NUVEQ_CAMERA_GRAPH_FAILED, {}, Left::kGrabber}},
  };
}

// --- The other steps ---

const std::string kOpenReport = "status callback \"0\" 1 4";
const std::string kCloseReport = "status callback \"0\" 1 3";

const std::map<std::string, Rows>& Table() {
  static const std::map<std::string, Rows> table = {
      {"register", {{"CoInitialize", kNoEffect}}},
      {"query", EnumerateDevices(NoCamera({"fail to create enumrate instance, error:%"}),
                                 NoCamera({"fail to create enumrate class, error: %"}), NoCamera()) +
                    // The end of the enumeration.
                    Rows{{"IEnumMoniker::Next", kNoEffect}} + SelectDevice() +
                    EnumerateDevices(NotBound("fail to create enumlate instance, error:%"),
                                     NotBound("Enumerate device fail, error: %"), Disconnected()) +
                    ReadCamera()},
      {"open",
       SetUpEncoder() + AllocateBuffers() + CreateGraph() +
           EnumerateDevices(NoDevice({"fail to create enumlate instance, error:%", "BindDeviceFilter fail."}),
                            NoDevice({"Enumerate device fail, error: %", "BindDeviceFilter fail."}),
                            NoDeviceToAdd()) +
           BuildAndRunGraph()},
      {"frame",
       {{"VideoEncoder::Encode", Outcome{0, {"fail to encode frame, error: %"}},
         Outcome{1, {"data callback \"0\"", "packet of 0 bytes"}}}}},
      {"close",
       {{"IMediaControl::Stop", kNoEffect},
        {"IMediaEvent::WaitForCompletion", Outcome{NUVEQ_CAMERA_CLOSE_INCOMPLETE, {kCloseReport}}}}},
      {"unload", {{"IMediaControl::Stop", kNoEffect}}},
  };
  return table;
}

// Without a close, an open only replaces the encoder.
DeterminedStep OpenWithoutClose(State state) {
  if (state == State::kOpen) {
    return {{NUVEQ_CAMERA_ALREADY_OPEN, {"Start open camera", "Camera is already open.", kOpenReport}}, {}};
  }
  return {
      {NUVEQ_CAMERA_ENCODER_FAILED, {"Start open camera", "AllocBuffer fail.", "fail to init video encoder"}},
      SetUpEncoder()};
}

DeterminedStep OpenWithoutCamera() {
  return {NoDevice({"Start open camera", "start OpenCamera, width:64, height:48, fps:30",
                    "BindDeviceFilter fail."}),
          SetUpEncoder() + AllocateBuffers() + CreateGraph()};
}

// Only a complete graph is stopped, and only one with both interfaces is waited for.
DeterminedStep CloseAfterFailedOpen(State state) {
  switch (state) {
    case State::kPartialGraph:
      return {{NUVEQ_CAMERA_CLOSED, {"CloseCameraInner.", kCloseReport}},
              {{"IMediaEvent::WaitForCompletion", kNoEffect}}};
    case State::kNoCompletion:
      return {{NUVEQ_CAMERA_CLOSE_INCOMPLETE, {"CloseCameraInner.", kCloseReport}}, {}};
    default:
      return {{NUVEQ_CAMERA_CLOSE_INCOMPLETE, {"CloseCameraInner."}}, {}};
  }
}

}  // namespace

std::vector<std::string> LabelsOf(Left left) {
  std::vector<std::string> labels;
  const auto add = [&](Left from, const std::vector<std::string>& more) {
    if (left >= from) {
      labels.insert(labels.end(), more.begin(), more.end());
    }
  };
  add(Left::kEncoder, {"encoder"});
  add(Left::kPool, std::vector<std::string>(5, "frame"));
  // The module stays loaded while only a close can release the graph.
  add(Left::kControl, {"pin of the module", left == Left::kControl ? "graph: 1" : "graph: 2"});
  add(Left::kCamera, {"built-in: 1", "built-in.capture: 1"});
  add(Left::kGrabber, {"grabber: 1", "grabber.in: 1", "grabber.out: 1"});
  return labels;
}

bool CanFail(const std::string& operation) {
  static const std::set<std::string> withoutResult = {
      // Clean-up.
      "AVEncodePacket::~AVEncodePacket", "CoTaskMemFree", "CoUninitialize", "IMalloc::Free", "UnpinModule",
      "VideoEncoder::ReleaseEncoder", "VideoFrame::ReleaseBuffer",
      // Others.
      "AVEncodePacket::AVEncodePacket", "PinModule"};
  return !withoutResult.contains(operation);
}

const std::vector<Row>& RowsOf(const std::string& step) { return Table().at(step); }

std::vector<int> ResultsWithoutMemory(const std::string& step) {
  if (step == "open") {
    return {NUVEQ_CAMERA_GRAPH_FAILED, NUVEQ_CAMERA_ENCODER_FAILED};
  }
  return step == "query" ? std::vector<int>{NUVEQ_CAMERA_NOT_USABLE} : std::vector<int>{};
}

std::optional<DeterminedStep> StepAfterFailure(const std::string& step, State state, bool hasCamera) {
  if (step == "open" && state != State::kClosed) {
    return OpenWithoutClose(state);
  }
  if (step == "open" && !hasCamera) {
    return OpenWithoutCamera();
  }
  if (step == "close" && state != State::kOpen) {
    return CloseAfterFailedOpen(state);
  }
  if (step == "unload" && state != State::kOpen) {
    return DeterminedStep{{0, {}}, {}};
  }
  return std::nullopt;
}

}  // namespace fault
