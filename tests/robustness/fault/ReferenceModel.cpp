#include "ReferenceModel.h"

namespace fault {

namespace {

std::string LogText(const std::string& function, const std::string& text) {
  return "[CameraOperator]" + text + "(CameraOperator::" + function + ")";
}

}  // namespace

std::vector<scripted::MediaType> ReferenceModel::BuiltInTypes() {
  return {scripted::Mjpg(kWidth, kHeight, kFps), scripted::Yuy2(kWidth, kHeight, kFps / 2)};
}

scripted::Answer ReferenceModel::Call(const std::string& operation) {
  m_trace.push_back(operation);
  return m_faults.At(operation).value_or(scripted::Answer{});
}

void ReferenceModel::Error(int line, const std::string& function, const std::string& text) {
  m_trace.push_back("ERROR CameraOperator:" + std::to_string(line) + " " + LogText(function, text));
}

void ReferenceModel::Error(const std::string& function, const std::string& text) {
  m_trace.push_back("ERROR CameraOperator " + LogText(function, text));
}

void ReferenceModel::Warn(int line, const std::string& function, const std::string& text) {
  m_trace.push_back("WARN CameraOperator:" + std::to_string(line) + " " + LogText(function, text));
}

void ReferenceModel::Load() {
  m_isLoaded = true;
  // The first call constructs the operator, which also works without COM.
  Call("CoInitialize");
}

void ReferenceModel::DeliverFrames(unsigned count) {
  for (unsigned i = 0; i < count; ++i) {
    if (!m_isStreaming) {
      m_fates.push_back(FrameFate::kRefused);
      continue;
    }
    if (m_freeBuffers.empty()) {
      m_fates.push_back(FrameFate::kWaiting);
      return;
    }
    const Buffer buffer = m_freeBuffers.front();
    m_freeBuffers.pop_front();
    if (!buffer.hasMemory) {
      m_fates.push_back(FrameFate::kLost);
      continue;
    }
    if (!m_hasEncodeThread) {
      m_fates.push_back(FrameFate::kQueued);
      continue;
    }
    m_fates.push_back(FrameFate::kEncoded);
    Call("AVEncodePacket::AVEncodePacket");
    if (const scripted::Answer answer = Call("VideoEncoder::Encode"); answer.hr != 0) {
      Error(1148, "EncodeH264", "fail to encode frame, error: " + std::to_string(answer.hr));
    } else {
      // An empty packet is passed on like any other.
      Note("data callback \"0\"");
      Note(DescribePacket(answer.null ? 0 : kPacketSize));
    }
    Call("AVEncodePacket::~AVEncodePacket");
    m_freeBuffers.push_back(buffer);
  }
}

void ReferenceModel::Close() {
  Error(950, "CloseCameraInner", "CloseCameraInner.");
  if (!m_hasControl) {
    Note("close returns 0");
    return;
  }
  if (m_isOpened) {
    Call("IMediaControl::Stop");
  }
  bool hasCompleted = false;
  if (m_hasEvent) {
    hasCompleted = Call("IMediaEvent::WaitForCompletion").hr == S_OK;
  }
  Note("status callback \"0\" 1 3");
  StopCapture();
  Note(hasCompleted ? "close returns 1" : "close returns 0");
}

void ReferenceModel::StopCapture() {
  m_hasEncodeThread = false;
  for (; m_poolSize != 0; --m_poolSize) {
    Call("VideoFrame::ReleaseBuffer");
  }
  m_freeBuffers.clear();
  m_hasControl = false;
  m_hasEvent = false;
  m_cameraInGraph = nullptr;
  m_isGrabberInGraph = false;
  m_isStreaming = false;
  m_isOpened = false;
  if (m_hasEncoder) {
    Call("VideoEncoder::ReleaseEncoder");
    m_hasEncoder = false;
  }
  if (m_isModulePinned) {
    Call("UnpinModule");
    m_isModulePinned = false;
  }
}

void ReferenceModel::Unload() {
  if (m_isOpened) {
    Call("IMediaControl::Stop");
  }
  StopCapture();
  Call("CoUninitialize");
  m_isLoaded = false;
  m_cameraName.reset();
  m_table.clear();
}

std::vector<std::string> ReferenceModel::Alive() const {
  std::vector<std::string> labels(m_formatsLeft, "current media type");
  for (const std::size_t size : m_blocks) {
    labels.push_back("block of " + std::to_string(size) + " bytes for the host");
  }
  labels.insert(labels.end(), m_poolSize, "frame");
  if (m_hasEncoder) {
    labels.emplace_back("encoder");
  }
  if (m_isModulePinned) {
    labels.emplace_back("pin of the module");
  }
  if (const int references = (m_hasControl ? 1 : 0) + (m_hasEvent ? 1 : 0); references != 0) {
    labels.push_back("graph: " + std::to_string(references));
  }
  if (m_cameraInGraph != nullptr) {
    labels.push_back(m_cameraInGraph->name + ": 1");
    labels.push_back(m_cameraInGraph->name + ".capture: 1");
  }
  if (m_isGrabberInGraph) {
    labels.insert(labels.end(), {"grabber: 1", "grabber.in: 1", "grabber.out: 1"});
  }
  return labels;
}

PostState ReferenceModel::After() const {
  return {m_isLoaded, m_poolSize != 0, m_hasControl, m_cameraName.has_value()};
}

}  // namespace fault
