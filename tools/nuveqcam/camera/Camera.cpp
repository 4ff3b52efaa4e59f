#include "camera/Camera.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <mutex>
#include <utility>

#include "cli/Failure.h"
#include "cli/SystemTraits.h"
#include "cli/Text.h"

namespace nuveqcam {
namespace {

// Global because the library's callbacks have no context argument.
std::atomic<PacketQueue*> receivingQueue{nullptr};
std::atomic<bool> libraryFoundNoCamera{false};

struct SharedCallbackRecord {
  std::mutex mutex;
  CallbackRecord record;
};

SharedCallbackRecord& CallbackState() {
  static SharedCallbackRecord state;
  return state;
}

constexpr std::int32_t kAccepted = 0;
constexpr std::int32_t kRejected = -1;

std::int32_t OnPacket(const char* id, std::uint32_t idLen, const std::uint8_t* data, std::uint32_t dataLen,
                      std::int32_t /*reserved*/) {
  const auto arrival = Clock::now();
  PacketQueue* const queue = receivingQueue;
  if (queue == nullptr) {
    const std::lock_guard lock(CallbackState().mutex);
    ++CallbackState().record.packetsAfterClose;
    return kRejected;
  }
  try {
    {
      const std::lock_guard lock(CallbackState().mutex);
      CallbackState().record.packetId.assign(id, idLen);
    }
    return queue->Push({{data, data + dataLen}, arrival}) ? kAccepted : kRejected;
  } catch (const std::exception&) {
    // Out of memory. The library only logs a callback's failure.
    queue->NoteLoss();
    return kRejected;
  }
}

std::int32_t OnStatus(const char* id, std::uint32_t idLen, NUVEQServiceStatus status) {
  try {
    const std::lock_guard lock(CallbackState().mutex);
    CallbackState().record.statuses.push_back({std::string(id, idLen), status});
    return kAccepted;
  } catch (const std::exception&) {
    return kRejected;
  }
}

std::int32_t OnAction(const char* /*id*/, std::uint32_t /*idLen*/, NUVEQServiceAction* action) {
  libraryFoundNoCamera = libraryFoundNoCamera || action->type == NUVEQ_SERVICE_ACTION_CAMERA_DRIVER_ERROR;
  return 0;
}

Capabilities ToCapabilities(const NUVEQCameraCapabilities& record) {
  Capabilities copy;
  copy.id.assign(record.id, record.idLen);
  for (std::uint32_t i = 0; i < record.abilityNum; ++i) {
    const NUVEQCameraAbility& ability = record.abilities[i];
    for (std::uint32_t j = 0; j < ability.resolutionNum; ++j) {
      const Size size = ToSize(ability.resolutions[j].width, ability.resolutions[j].height);
      if (std::find(copy.sizes.begin(), copy.sizes.end(), size) == copy.sizes.end()) {
        copy.sizes.push_back(size);
      }
    }
    for (std::uint32_t j = 0; j < ability.fpsRangeNum; ++j) {
      copy.rates.push_back(ability.fpsRanges[j].maximum);
    }
  }
  return copy;
}

// Releases the library's capability records.
class RecordsOwner {
 public:
  RecordsOwner(const NUVEQCameraHandler& table, NUVEQCameraCapabilities* records, std::uint32_t count)
      : m_table(table), m_records(records), m_count(count) {}
  RecordsOwner(const RecordsOwner&) = delete;
  RecordsOwner& operator=(const RecordsOwner&) = delete;
  ~RecordsOwner() { m_table.ReleaseCapability(0, m_records, m_count); }

 private:
  const NUVEQCameraHandler& m_table;
  NUVEQCameraCapabilities* m_records;
  std::uint32_t m_count;
};

}  // namespace

Camera::Camera(const CameraLibrary& library, LibraryLog& log) : m_table(library.Table()), m_log(log) {
  const NUVEQServiceListener listener{OnStatus, OnAction};
  ClearCallbacks();
  m_table.RegisterSendDataCallback(nullptr, 0, OnPacket);
  m_table.RegisterServiceListener(&listener);
}

Capabilities Camera::Query() {
  m_log.Clear();
  libraryFoundNoCamera = false;
  NUVEQCameraCapabilities* records = nullptr;
  std::uint32_t count = 0;
  const std::int32_t result = m_table.GetCapability(&records, &count);
  if (result == NUVEQ_CAMERA_OK && records != nullptr && count > 0) {
    const RecordsOwner owner(m_table, records, count);
    Capabilities camera = ToCapabilities(records[0]);
    camera.formats = m_log.Formats();
    return camera;
  }
  if (libraryFoundNoCamera) {
    throw Failure(ExitCode::kNoCamera, NoCameraText(ListCaptureDevices()));
  }
  throw Failure(ExitCode::kCannotOpen,
                "cannot read the camera's capabilities (result " + std::to_string(result) + ")" +
                    ReasonText(m_log.Lines(),
                               "close other programs that use the camera and try again, or use -v "
                               "to see the library's log"));
}

void Camera::Open(const CameraRequest& request, PacketQueue& queue) {
  m_log.Clear();
  m_openId = request.id;
  receivingQueue = &queue;
  const NUVEQCameraParam param{request.id.data(), static_cast<std::uint32_t>(request.id.size()),
                               request.size.width, request.size.height, request.fps};
  // CloseCameraDevice also cleans up after a failed open.
  m_isOpen = true;
  const std::int32_t result = m_table.OpenCameraDevice(&param);
  if (result == NUVEQ_CAMERA_OK) {
    return;
  }
  // Close after reading the log, because closing adds lines to it; and also if reading it throws.
  struct ScopedClose {
    Camera& camera;
    ~ScopedClose() { camera.Close(); }
  };
  [[maybe_unused]] const ScopedClose closing{*this};
  const std::vector<std::string> lines = m_log.Lines();
  const std::string message = "cannot open the camera at " + ToText(request.size) + ", " +
                              std::to_string(request.fps) + " fps (result " + std::to_string(result) + ")";
  if (result == NUVEQ_CAMERA_ENCODER_FAILED) {
    throw Failure(
        ExitCode::kCannotOpen,
        message + ReasonText(lines, "the encoder does not support the size; choose another one with --size"));
  }
  throw Failure(ExitCode::kCannotOpen,
                message + ReasonText(lines,
                                     "choose one of the sizes of 'nuveqcam list' with --size, or use -v to "
                                     "see the library's log"));
}

std::int32_t Camera::Close() {
  if (!std::exchange(m_isOpen, false)) {
    return NUVEQ_CAMERA_CLOSE_INCOMPLETE;
  }
  const std::int32_t result =
      m_table.CloseCameraDevice(m_openId.data(), static_cast<std::uint32_t>(m_openId.size()));
  receivingQueue = nullptr;
  return result;
}

CallbackRecord Camera::Callbacks() {
  const std::lock_guard lock(CallbackState().mutex);
  return CallbackState().record;
}

void Camera::ClearCallbacks() {
  const std::lock_guard lock(CallbackState().mutex);
  CallbackState().record = {};
}

std::string NoCameraText(const std::vector<CaptureDeviceInfo>& devices) {
  std::string text = std::string("this PC has no built-in camera; enable it if it has one, or ") +
                     ThisSystem().noCameraAdvice;
  if (devices.empty()) {
    return text + "\nno capture devices were found";
  }
  text += "\ncapture devices found:";
  for (const CaptureDeviceInfo& device : devices) {
    const std::string reason = device.exclusionReason.empty()
                                   ? "looks built in, but the library did not select it"
                                   : "not selected: " + SanitizeForTerminal(device.exclusionReason);
    text +=
        "\n  " + SanitizeForTerminal(device.node) + "  " + SanitizeForTerminal(device.name) + ", " + reason;
  }
  return text;
}

}  // namespace nuveqcam
