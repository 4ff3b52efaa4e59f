// The operator's life, the open and close sequences, the teardown, and the reports to the platform.
#include "CameraOperator.h"

#include <optional>
#include <utility>

#include "CameraCapabilityMgr.h"
#include "Log.h"
#include "Module.h"

namespace {

constexpr LONG kForEver = -1;

// The host's logger; none if the host fails to provide it.
std::optional<log4cplus::Logger> TryGetLogger() noexcept {
  try {
    return GetLogger();
  } catch (...) {
    return std::nullopt;
  }
}

// Holds the process-wide operator.
class InstanceHolder {
 public:
  // The operator's threads log until it is destroyed, so the logger is made before it and goes after it.
  // Without a logger only the log lines are lost, and one that is made later may go before the operator.
  InstanceHolder() : m_logger(TryGetLogger()) { new (&m_operator) CameraOperator; }
  InstanceHolder(const InstanceHolder&) = delete;
  InstanceHolder& operator=(const InstanceHolder&) = delete;
  // In a process that is ending, the operator's threads may have died with its locks held; and one that ends
  // from inside the data callback would wait for its own thread. Memory and devices go back to the system
  // anyway.
  ~InstanceHolder() {
    if (!IsProcessEnding() && !m_operator.IsOnEncodeThread()) {
      m_operator.~CameraOperator();
    }
  }

  CameraOperator& Get() { return m_operator; }

 private:
  std::optional<log4cplus::Logger> m_logger;
  union {
    CameraOperator m_operator;
  };
};

}  // namespace

// Tears down at scope exit, whatever a callback of the platform's does.
class CameraOperator::TearDown {
 public:
  explicit TearDown(CameraOperator& camera) : m_camera(camera) { m_camera.m_isClosing = true; }
  TearDown(const TearDown&) = delete;
  TearDown& operator=(const TearDown&) = delete;
  ~TearDown() {
    m_camera.StopCapture();
    m_camera.m_isClosing = false;
  }

 private:
  CameraOperator& m_camera;
};

CameraOperator::CameraOperator() { CoInitialize(nullptr); }

CameraOperator::~CameraOperator() {
  if (m_isOpened) {
    StopGraph();
  }
  StopCapture();
  // Where a pin means anything, a library that is being unloaded has none left.
  UnpinModuleAfterClose();
  CoUninitialize();
}

CameraOperator& CameraOperator::GetInstance() {
  static InstanceHolder holder;
  return holder.Get();
}

int CameraOperator::SetSendDataCallback(void* /*ignored*/, std::uint32_t /*ignoredLen*/,
                                        SendDataCallback callback) {
  if (callback == nullptr) {
    return NUVEQ_CAMERA_INVALID_ARGUMENT;
  }
  m_sendDataCallback = callback;
  return NUVEQ_CAMERA_OK;
}

int CameraOperator::SetServiceListener(const NUVEQServiceListener* listener) {
  if (listener == nullptr) {
    return NUVEQ_CAMERA_INVALID_ARGUMENT;
  }
  m_statusCallback = listener->onStatus;
  m_actionCallback = listener->onAction;
  return NUVEQ_CAMERA_OK;
}

int CameraOperator::OpenCameraInner(const NUVEQCameraParam* param) {
  OPERATOR_LOG(WARN_LOG_LEVEL, 708, L"Start open camera");
  if (param == nullptr) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, 710, L"invalid parameter");
    return NUVEQ_CAMERA_INVALID_ARGUMENT;
  }
  unsigned int cameraIndex = 0;
  if (!ParseCameraId(param->id, param->idLen, &cameraIndex)) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, 716, L"invalid camera id");
    return NUVEQ_CAMERA_INVALID_ARGUMENT;
  }
  if (m_isOpened) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, 721, L"Camera is already open.");
    UpdateServiceStatusToNuveq(param->id, param->idLen, NUVEQ_SERVICE_STATUS_CAMERA_OPEN);
    return NUVEQ_CAMERA_ALREADY_OPEN;
  }
  // The failures from here on clean nothing up: that is the close request's work.
  if (!InitVideoEncoder(MakeEncodeParam(*param))) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, 743, L"fail to init video encoder");
    return NUVEQ_CAMERA_ENCODER_FAILED;
  }
  const GUID subType = CameraCapabilityMgr::GetInstance().GetSubType(param->width, param->height);
  if (!OpenCamera(cameraIndex, param->width, param->height, param->fps, subType)) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, 754, L"fail to open camera");
    return NUVEQ_CAMERA_GRAPH_FAILED;
  }
  UpdateServiceStatusToNuveq(param->id, param->idLen, NUVEQ_SERVICE_STATUS_CAMERA_OPEN);
  if (!m_mediaControl) {
    // The platform has closed the camera from inside the report.
    return NUVEQ_CAMERA_GRAPH_FAILED;
  }
  m_stopEncode = false;
  if (const HRESULT hr = m_mediaControl->Run(); hr != S_OK) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, 763, L"fail to update service status, error: ", hr);
    return NUVEQ_CAMERA_GRAPH_FAILED;
  }
  LONG eventCode = 0;
  m_mediaEvent->WaitForCompletion(kForEver, &eventCode);
  StartEncodeThread();
  OPERATOR_LOG(WARN_LOG_LEVEL, 775, L"open camera success");
  return NUVEQ_CAMERA_OK;
}

VideoEncoder::EncodeParam CameraOperator::MakeEncodeParam(const NUVEQCameraParam& param) const {
  const CameraFormatCode format = CameraCapabilityMgr::GetInstance().GetFormat(param.width, param.height);
  VideoEncoder::EncodeParam encodeParam{};
  encodeParam.width = param.width;
  encodeParam.height = param.height;
  encodeParam.frameRate = param.fps;
  encodeParam.colorSpace = static_cast<ColorSpace>(format);
  encodeParam.colorCode = format == CameraFormatCode::kUncompressed ? 1 : 2;
  encodeParam.outWidth = param.width;
  encodeParam.outHeight = param.height;
  // A key frame every five seconds.
  encodeParam.keyFrameInterval = static_cast<std::uint16_t>(param.fps * 5);
  encodeParam.unnamed34 = 1;
  encodeParam.unnamed36 = 1;
  encodeParam.bitRate = 1536;
  encodeParam.unnamed40 = 0;
  return encodeParam;
}

bool CameraOperator::CloseCameraInner(const char* id, std::uint32_t idLen) {
  OPERATOR_LOG(ERROR_LOG_LEVEL, 950, L"CloseCameraInner.");
  if (!m_mediaControl) {
    return false;
  }
  // From inside the data callback closing would wait for its own thread, from inside its own report for
  // itself.
  if (IsOnEncodeThread() || m_isClosing) {
    return false;
  }
  const TearDown tearDown(*this);
  if (m_isOpened) {
    StopGraph();
  }
  // A graph that lacks the event interface has nothing to wait on.
  HRESULT completed = E_POINTER;
  if (m_mediaEvent) {
    LONG eventCode = 0;
    completed = m_mediaEvent->WaitForCompletion(kForEver, &eventCode);
  }
  UpdateServiceStatusToNuveq(id, idLen, NUVEQ_SERVICE_STATUS_CAMERA_CLOSED);
  return completed == S_OK;
}

void CameraOperator::StopGraph() {
  if (!m_mediaControl) {
    return;
  }
  // Stopping waits for the streaming thread. Where that thread waits for a buffer that cannot come, it has to
  // be sent on its way first; in every other state buffers come back and frames in flight are still encoded.
  m_stoppingGraph = true;
  if (AreAllBuffersLost() || !m_encodeThread.joinable()) {
    m_frameBufQueue.Stop();
  }
  m_mediaControl->Stop();
  m_stoppingGraph = false;
}

void CameraOperator::StopCapture() {
  const bool hasEncodeThread = m_encodeThread.joinable();
  m_frameBufQueue.Stop();
  StopEncodeThread();
  FreePool();
  m_mediaControl.Reset();
  m_mediaEvent.Reset();
  m_isOpened = false;
  if (m_videoEncoder != nullptr) {
    VideoEncoder::ReleaseEncoder(m_videoEncoder);
    m_videoEncoder = nullptr;
  }
  // Joining a thread took the loader lock. Without one the caller may hold that lock, and must not wait for
  // it.
  m_unpinTiming = hasEncodeThread ? UnpinTiming::kBeforeReturning : UnpinTiming::kSoon;
}

void CameraOperator::UnpinModuleAfterClose() {
  if (!m_mediaControl && std::exchange(m_isModulePinned, false)) {
    UnpinModule(std::exchange(m_unpinTiming, UnpinTiming::kSoon));
  }
}

void CameraOperator::UpdateServiceStatusToNuveq(const char* id, std::uint32_t idLen,
                                                NUVEQServiceStatus status) {
  const ServiceStatusCallback callback = m_statusCallback;
  if (callback == nullptr) {
    return;
  }
  if (const std::int32_t result = callback(id, idLen, status); result != 0) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, 784, L"fail to update service status, error: ", result);
  }
}

void CameraOperator::UpdateServiceActionToNuveq(const char* id, std::uint32_t idLen,
                                                NUVEQServiceAction& action) {
  const ServiceActionCallback callback = m_actionCallback;
  if (callback == nullptr) {
    return;
  }
  OPERATOR_LOG(ERROR_LOG_LEVEL, 792, L"report camera driver error");
  if (const std::int32_t result = callback(id, idLen, &action); result != 0) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, 795, L"fail to update service action, error: ", result);
  }
}
