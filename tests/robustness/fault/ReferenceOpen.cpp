// Reference model of an open.
#include <array>

#include "ReferenceModel.h"

namespace fault {

namespace {

using scripted::Answer;

bool HasFailed(const Answer& answer) { return answer.hr != S_OK || answer.null; }

constexpr unsigned kFrameBuffers = 5;
// Pin directions of the filters.
constexpr std::array kPinsOfCamera = {PINDIR_OUTPUT};
constexpr std::array kPinsOfGrabber = {PINDIR_INPUT, PINDIR_OUTPUT};

}  // namespace

void ReferenceModel::Open() {
  Warn(708, "OpenCameraInner", "Start open camera");
  Note("open returns " + std::to_string(OpenResult()));
}

int ReferenceModel::OpenResult() {
  if (m_isOpened) {
    Error(721, "OpenCameraInner", "Camera is already open.");
    Note("status callback \"0\" 1 4");
    return -4;
  }
  if (!MakeEncoder() || !MakePool()) {
    Error(743, "OpenCameraInner", "fail to init video encoder");
    return -1004;
  }
  if (!BuildGraph()) {
    Error(754, "OpenCameraInner", "fail to open camera");
    return -1001;
  }
  Note("status callback \"0\" 1 4");
  const HRESULT ran = Call("IMediaControl::Run").hr;
  // A graph that returns S_FALSE runs.
  m_isStreaming = ran >= 0;
  if (ran != S_OK) {
    Error(763, "OpenCameraInner", "fail to update service status, error: " + std::to_string(ran));
    return -1001;
  }
  Call("IMediaEvent::WaitForCompletion");
  if (m_faults.At(kThreadStart)) {
    // The exception is converted by the table function without logging.
    return -1001;
  }
  m_hasEncodeThread = true;
  Warn(775, "OpenCameraInner", "open camera success");
  return 0;
}

bool ReferenceModel::MakeEncoder() {
  if (HasFailed(Call("VideoEncoder::CreateDefaultEncoder")) || Call("VideoEncoder::Initialize").hr != S_OK) {
    Error(537, "InitVideoEncoder", "init video encoder failed");
    Call("VideoEncoder::ReleaseEncoder");
    return false;
  }
  if (m_hasEncoder) {
    // Replaces the encoder of a failed open.
    Call("VideoEncoder::ReleaseEncoder");
  }
  m_hasEncoder = true;
  return true;
}

bool ReferenceModel::MakePool() {
  bool isMade = m_poolSize == 0;
  for (unsigned made = 0; isMade && made < kFrameBuffers; ++made) {
    const Answer answer = Call("VideoFrame::AllocBuffer");
    isMade = answer.hr == S_OK;
    if (isMade) {
      m_freeBuffers.push_back({!answer.null});
      continue;
    }
    // All or nothing.
    for (; made != 0; --made) {
      Call("VideoFrame::ReleaseBuffer");
    }
    m_freeBuffers.clear();
  }
  if (!isMade) {
    Error(546, "InitVideoEncoder", "AllocBuffer fail.");
    return false;
  }
  m_poolSize = kFrameBuffers;
  return true;
}

bool ReferenceModel::BuildGraph() {
  Error("OpenCamera", "start OpenCamera, width:64, height:48, fps:30");
  if (!MakeGraph()) {
    Error("OpenCamera", "InitCameraBasicInfo fail. cameraId:0");
    return false;
  }
  if (!AddCamera()) {
    Error("OpenCamera", "AddDeviceFilter fail.");
    return false;
  }
  if (!AddGrabber()) {
    Error("OpenCamera", "AddSampleGrabberFilter fail.");
    return false;
  }
  if (!FindPin(kPinsOfCamera, PINDIR_OUTPUT) || !SetFormat() || !FindPin(kPinsOfGrabber, PINDIR_INPUT) ||
      !Succeeds("IGraphBuilder::Connect", "OpenCamera", "fail to Connect pin, error: ")) {
    return false;
  }
  Error("OpenCamera", "OpenCamera success.");
  m_isOpened = true;
  return true;
}

bool ReferenceModel::Succeeds(const std::string& operation, const std::string& function,
                              const std::string& failure) {
  const Answer answer = Call(operation);
  if (HasFailed(answer)) {
    Error(function, failure + std::to_string(answer.hr));
  }
  return !HasFailed(answer);
}

bool ReferenceModel::MakeGraph() {
  const char* const function = "InitCameraBasicInfo";
  if (!Succeeds("CoCreateInstance", function, "CoCreateInstance fail, error: ")) {
    return false;
  }
  Answer answer = Call("IUnknown::QueryInterface");
  m_hasControl = !HasFailed(answer);
  if (!m_hasControl) {
    Error(function, "QueryInterface IID_IMediaControl fail, error: " + std::to_string(answer.hr));
    return false;
  }
  // From here on a close can release the graph.
  Call("PinModule");
  m_isModulePinned = true;
  answer = Call("IUnknown::QueryInterface");
  m_hasEvent = !HasFailed(answer);
  if (!m_hasEvent) {
    Error(function, "QueryInterface IID_IMediaEvent fail, error: " + std::to_string(answer.hr));
    return false;
  }
  return true;
}

bool ReferenceModel::AddCamera() {
  const char* const function = "AddDeviceFilter";
  const Binding binding = Bind();
  if (binding == Binding::kFailed) {
    Error(function, "BindDeviceFilter fail.");
    return false;
  }
  // AddFilter refuses null.
  HRESULT hr = Call("IFilterGraph::AddFilter").hr;
  if (hr == S_OK && binding == Binding::kNothing) {
    hr = E_POINTER;
  }
  if (hr != S_OK) {
    Error(function, "AddFilter fail, error: " + std::to_string(hr));
    return false;
  }
  m_cameraInGraph = m_bound;
  return true;
}

bool ReferenceModel::AddGrabber() {
  const char* const function = "AddSampleGrabberFilter";
  if (!Succeeds("CoCreateInstance", function, "CoCreateInstance sampleGrabberFilter fail, error: ")) {
    return false;
  }
  if (!ConfigureGrabber()) {
    Error(function, "ConfigSampleGrabber fail.");
    return false;
  }
  m_isGrabberInGraph = Succeeds("IFilterGraph::AddFilter", function, "AddFilter fail, error: ");
  return m_isGrabberInGraph;
}

bool ReferenceModel::ConfigureGrabber() {
  const char* const function = "ConfigSampleGrabber";
  return Succeeds("IUnknown::QueryInterface", function, "QueryInterface IID_ISampleGrabber fail, error: ") &&
         Succeeds("ISampleGrabber::SetMediaType", function, "SetMediaType fail, error: ") &&
         Succeeds("ISampleGrabber::SetCallback", function, "fail to set grabber callback, error: ") &&
         Succeeds("ISampleGrabber::SetBufferSamples", function, "fail to set buffer sample, error: ") &&
         Succeeds("ISampleGrabber::SetOneShot", function, "fail to set one shot, error: ");
}

bool ReferenceModel::FindPin(std::span<const PIN_DIRECTION> pinsOfFilter, PIN_DIRECTION wanted) {
  const char* const function = "QueryFilterPin";
  if (!Succeeds("IBaseFilter::EnumPins", function, "EnumPins fail, error: ")) {
    return false;
  }
  for (auto pin = pinsOfFilter.begin();; ++pin) {
    const Answer next = Call("IEnumPins::Next");
    if (next.hr != S_OK || pin == pinsOfFilter.end()) {
      Error(function, "QueryFilterPin fail.");
      return false;
    }
    if (next.null) {
      continue;
    }
    const Answer direction = Call("IPin::QueryDirection");
    // An unwritten direction is 0, which means input.
    if (direction.hr == S_OK && (direction.null ? PINDIR_INPUT : *pin) == wanted) {
      return true;
    }
  }
}

bool ReferenceModel::SetFormat() {
  const char* const function = "SetCameraFormat";
  if (!Succeeds("IUnknown::QueryInterface", function, "fail to get amstream config, error: ")) {
    return false;
  }
  const Answer current = Call("IAMStreamConfig::GetFormat");
  if (HasFailed(current)) {
    Error(function, "fail to get camera parameter, error: " + std::to_string(current.hr));
    return false;
  }
  ++m_formatsLeft;
  Error(function, "Set camera parameter, (64,48,30," + SubTypeNumber() + ")");
  const bool isSet = Succeeds("IAMStreamConfig::SetFormat", function, "Set camera parameter fail, error:");
  Call("CoTaskMemFree");
  return isSet;
}

std::string ReferenceModel::SubTypeNumber() const {
  // The fastest entry of that size decides; without an entry the format is uncompressed.
  unsigned fps = 0;
  bool isMjpg = false;
  for (const Entry& entry : m_table) {
    if (entry.width == LONG{kWidth} && entry.height == LONG{kHeight} && entry.fps > fps) {
      fps = entry.fps;
      isMjpg = entry.isMjpg;
    }
  }
  return isMjpg ? "1196444237" : "844715353";
}

}  // namespace fault
