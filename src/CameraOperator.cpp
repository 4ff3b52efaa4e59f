// Lifetime of the operator, open and close sequences, teardown, and reports to the host.
#include "CameraOperator.h"

#include <optional>
#include <utility>

#include "CameraCapabilityMgr.h"
#include "Log.h"
#include "Module.h"

namespace {

constexpr LONG kNoTimeout = -1;

// Returns the host's logger, or nullopt if GetLogger throws.
std::optional<log4cplus::Logger> TryGetLogger() noexcept {
  try {
    return GetLogger();
  } catch (...) {
    return std::nullopt;
  }
}

// Owner of the process-wide operator.
class InstanceHolder {
 public:
  // The operator's threads log until it is destroyed, so the logger is created before the operator and
  // destroyed after it. The operator also works without a logger.
  InstanceHolder() : m_logger(TryGetLogger()) { new (&m_operator) CameraOperator; }
  InstanceHolder(const InstanceHolder&) = delete;
  InstanceHolder& operator=(const InstanceHolder&) = delete;
  // While the process is ending, the destructor could deadlock: the operator's threads may have been killed
  // with its locks held, and exit() from inside the data callback would join the calling thread. The system
  // reclaims memory and devices.
  ~InstanceHolder() {
    if (!platform::IsProcessEnding() && !m_operator.IsOnEncodeThread()) {
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

// Tears down at scope exit, even if a callback of the host throws.
class CameraOperator::TeardownGuard {
 public:
  explicit TeardownGuard(CameraOperator& camera) : m_camera(camera) { m_camera.m_isClosing = true; }
  TeardownGuard(const TeardownGuard&) = delete;
  TeardownGuard& operator=(const TeardownGuard&) = delete;
  ~TeardownGuard() {
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
  // Balances the pin on systems where PinModule has no effect. Elsewhere a pinned module is not unloaded.
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
  // Failures from here on leave partial state; CloseCameraInner cleans up.
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
    // The host has closed the camera from inside the report.
    return NUVEQ_CAMERA_GRAPH_FAILED;
  }
  m_stopEncode = false;
  if (const HRESULT hr = m_mediaControl->Run(); hr != S_OK) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, 763, L"fail to update service status, error: ", hr);
    return NUVEQ_CAMERA_GRAPH_FAILED;
  }
  LONG eventCode = 0;
  m_mediaEvent->WaitForCompletion(kNoTimeout, &eventCode);
  StartEncodeThread();
  OPERATOR_LOG(WARN_LOG_LEVEL, 775, L"open camera success");
  return NUVEQ_CAMERA_OK;
}

bool CameraOperator::CloseCameraInner(const char* id, std::uint32_t idLen) {
  OPERATOR_LOG(ERROR_LOG_LEVEL, 950, L"CloseCameraInner.");
  if (!m_mediaControl) {
    return false;
  }
  // A close inside the data callback would join its own thread. A close inside the report of a close is
  // already in progress.
  if (IsOnEncodeThread() || m_isClosing) {
    return false;
  }
  const TeardownGuard teardown(*this);
  if (m_isOpened) {
    StopGraph();
  }
  // Without an event interface there is no completion to wait for.
  HRESULT completed = E_POINTER;
  if (m_mediaEvent) {
    LONG eventCode = 0;
    completed = m_mediaEvent->WaitForCompletion(kNoTimeout, &eventCode);
  }
  UpdateServiceStatusToNuveq(id, idLen, NUVEQ_SERVICE_STATUS_CAMERA_CLOSED);
  return completed == S_OK;
}

void CameraOperator::StopGraph() {
  if (!m_mediaControl) {
    return;
  }
  // Stop() waits for the streaming thread, which may be waiting for a free buffer. If no buffer can become
  // free (all are lost, or no encoder thread runs), the queue is stopped first to prevent a deadlock.
  // Otherwise the queue keeps running, so that frames in flight are still encoded.
  m_isStoppingGraph = true;
  if (AreAllBuffersLost() || !m_encodeThread.joinable()) {
    m_frameBufQueue.Stop();
  }
  m_mediaControl->Stop();
  m_isStoppingGraph = false;
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
  // A caller that has joined a thread does not hold the loader lock, so unpinning may wait. Any other caller
  // may hold it.
  m_unpinTiming = hasEncodeThread ? platform::UnpinTiming::kBeforeReturning : platform::UnpinTiming::kSoon;
}

void CameraOperator::UnpinModuleAfterClose() {
  if (!m_mediaControl && std::exchange(m_isModulePinned, false)) {
    platform::UnpinModule(m_unpinTiming);
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
