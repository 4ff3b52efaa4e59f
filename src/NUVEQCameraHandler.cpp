// The exported function and the handler table: functions that forward to the operator and convert exceptions
// to results.
#include "NUVEQCameraHandler.h"

#include <atomic>

#include "CameraOperator.h"
#include "Log.h"

namespace {

// Runs an operation of the operator. Returns failure if it throws.
template <typename Result, typename Operation>
Result Forward(Result failure, Operation operation) noexcept {
  try {
    return operation(CameraOperator::GetInstance());
  } catch (...) {
    return failure;
  }
}

// Number of active calls that may report to the host; more than one when a callback calls back.
std::atomic<int> activeRequests = 0;

// As Forward, for operations that may report to the host. A callback may nest a close in any of them. The
// module is unpinned when the outermost call returns, because the library may be unmapped as soon as this
// thread has left it.
template <typename Operation>
std::int32_t ForwardRequest(std::int32_t failure, Operation operation) noexcept {
  CameraOperator* used = nullptr;
  ++activeRequests;
  const auto result = Forward<std::int32_t>(failure, [&](CameraOperator& camera) {
    used = &camera;
    return operation(camera);
  });
  if (--activeRequests == 0 && used != nullptr) {
    used->UnpinModuleAfterClose();
  }
  return result;
}

}  // namespace

extern "C" {

static std::int32_t RegisterSendDataCallback(void* ignored, std::uint32_t ignoredLen,
                                             SendDataCallback callback) {
  return Forward<std::int32_t>(NUVEQ_CAMERA_INVALID_ARGUMENT, [&](CameraOperator& camera) {
    return camera.SetSendDataCallback(ignored, ignoredLen, callback);
  });
}

static std::int32_t OpenCameraDevice(const NUVEQCameraParam* param) {
  return ForwardRequest(NUVEQ_CAMERA_GRAPH_FAILED,
                        [&](CameraOperator& camera) { return camera.OpenCameraInner(param); });
}

static std::int32_t CloseCameraDevice(const char* id, std::uint32_t idLen) {
  return ForwardRequest(NUVEQ_CAMERA_CLOSE_INCOMPLETE, [&](CameraOperator& camera) {
    return camera.CloseCameraInner(id, idLen) ? NUVEQ_CAMERA_CLOSED : NUVEQ_CAMERA_CLOSE_INCOMPLETE;
  });
}

static std::int32_t Reserved3(void* /*first*/, std::uint32_t /*second*/, std::uint32_t /*third*/,
                              void* /*fourth*/) {
  return 0;
}

static std::int32_t GetCapability(NUVEQCameraCapabilities** capabilities, std::uint32_t* count) {
  return ForwardRequest(NUVEQ_CAMERA_NOT_USABLE, [&](CameraOperator& camera) {
    return camera.GetCameraCapabilityInner(capabilities, count);
  });
}

static std::int32_t Reserved5(void* /*first*/) { return 0; }

static void ReleaseCapability(std::uint32_t ignored, NUVEQCameraCapabilities* capabilities,
                              std::uint32_t count) {
  Forward<bool>(false, [&](CameraOperator& camera) {
    camera.FreeCameraCapabilities(static_cast<int>(ignored), capabilities, count);
    return true;
  });
}

static std::int32_t RegisterServiceListener(const NUVEQServiceListener* listener) {
  return Forward<std::int32_t>(NUVEQ_CAMERA_INVALID_ARGUMENT,
                               [&](CameraOperator& camera) { return camera.SetServiceListener(listener); });
}

static std::int32_t Reserved8(std::uint32_t /*first*/, void* /*second*/, std::uint32_t /*third*/,
                              void* /*fourth*/) {
  return 0;
}

NUVEQ_EXPORT std::int32_t NUVEQGetCameraHandler(NUVEQCameraHandler* handler) {
  if (handler == nullptr) {
    CAMERA_LOG(ERROR_LOG_LEVEL, "CameraOperator", 161, L"[", camera_log::kTag, L"]",
               L"error param, cameraHandler is nullptr.", L"(", __func__, L")");
    return NUVEQ_CAMERA_INVALID_ARGUMENT;
  }
  *handler = {};
  handler->RegisterSendDataCallback = RegisterSendDataCallback;
  handler->OpenCameraDevice = OpenCameraDevice;
  handler->CloseCameraDevice = CloseCameraDevice;
  handler->Reserved3 = Reserved3;
  handler->GetCapability = GetCapability;
  handler->Reserved5 = Reserved5;
  handler->ReleaseCapability = ReleaseCapability;
  handler->RegisterServiceListener = RegisterServiceListener;
  handler->Reserved8 = Reserved8;
  return NUVEQ_CAMERA_OK;
}

}  // extern "C"
