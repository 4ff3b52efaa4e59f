#include "camera/Camera.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <utility>

#include "cli/Failure.h"
#include "cli/SystemTraits.h"
#include "cli/Text.h"

namespace {

constexpr std::uint32_t kNoUsableCamera = 7;

// The callbacks carry no context, and there is one camera.
std::atomic<PacketQueue*> receivingQueue{nullptr};
std::atomic<bool> libraryFoundNoCamera{false};

std::int32_t OnPacket(const char* /*id*/, std::uint32_t /*idLen*/, const std::uint8_t* data,
                      std::uint32_t dataLen, std::int32_t /*reserved*/) {
  constexpr std::int32_t kTaken = 0;
  constexpr std::int32_t kNotTaken = -1;
  PacketQueue* const queue = receivingQueue;
  if (queue == nullptr) {
    return kNotTaken;
  }
  const auto arrival = Clock::now();
  try {
    return queue->Push({{data, data + dataLen}, arrival}) ? kTaken : kNotTaken;
  } catch (const std::exception&) {
    // No memory. The library would only log it.
    queue->NoteLoss();
    return kNotTaken;
  }
}

std::int32_t OnAction(const char* /*id*/, std::uint32_t /*idLen*/, NUVEQServiceAction* action) {
  libraryFoundNoCamera = libraryFoundNoCamera || action->type == kNoUsableCamera;
  return 0;
}

Capabilities Copy(const NUVEQCameraCapabilities& record) {
  Capabilities copy;
  copy.id.assign(record.id, record.idLen);
  for (std::uint32_t i = 0; i < record.abilityNum; ++i) {
    const NUVEQCameraAbility& ability = record.abilities[i];
    for (std::uint32_t j = 0; j < ability.resolutionNum; ++j) {
      const auto& [width, height] = ability.resolutions[j];
      // The sign says which line comes first in memory, which is no matter here.
      const Size size{static_cast<std::uint32_t>(width), height < 0 ? 0U - static_cast<std::uint32_t>(height)
                                                                    : static_cast<std::uint32_t>(height)};
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

// Capability records until they go back to the library.
class Records {
 public:
  Records(const NUVEQCameraHandler& table, NUVEQCameraCapabilities* records, std::uint32_t count)
      : m_table(table), m_records(records), m_count(count) {}
  Records(const Records&) = delete;
  Records& operator=(const Records&) = delete;
  ~Records() { m_table.ReleaseCapability(0, m_records, m_count); }

 private:
  const NUVEQCameraHandler& m_table;
  NUVEQCameraCapabilities* m_records;
  std::uint32_t m_count;
};

}  // namespace

Camera::Camera(const CameraLibrary& library, LibraryLog& log) : m_table(library.Table()), m_log(log) {
  const NUVEQServiceListener listener{nullptr, OnAction};
  m_table.RegisterSendDataCallback(nullptr, 0, OnPacket);
  m_table.RegisterServiceListener(&listener);
}

Capabilities Camera::Query() {
  m_log.Forget();
  libraryFoundNoCamera = false;
  NUVEQCameraCapabilities* records = nullptr;
  std::uint32_t count = 0;
  const std::int32_t result = m_table.GetCapability(&records, &count);
  if (result == NUVEQ_CAMERA_OK && records != nullptr && count > 0) {
    const Records owner(m_table, records, count);
    return Copy(records[0]);
  }
  if (libraryFoundNoCamera) {
    throw Failure(ExitCode::kNoCamera, NoCameraText(ListCaptureDevices()));
  }
  throw Failure(ExitCode::kCannotOpen,
                "cannot read what the camera offers (result " + std::to_string(result) + ")" +
                    ReasonText(m_log.Lines(),
                               "close other programs that use the camera and try again, or see "
                               "all of the library's log with -v"));
}

void Camera::Open(const CameraRequest& request, PacketQueue& queue) {
  m_log.Forget();
  m_openId = request.id;
  receivingQueue = &queue;
  const NUVEQCameraParam param{request.id.data(), static_cast<std::uint32_t>(request.id.size()),
                               request.size.width, request.size.height, request.fps};
  // A failed open, too, leaves something to close.
  m_isOpen = true;
  const std::int32_t result = m_table.OpenCameraDevice(&param);
  if (result == NUVEQ_CAMERA_OK) {
    return;
  }
  // After the log was read, which closing adds to; and also where reading it fails.
  struct CloseAtEnd {
    Camera& camera;
    ~CloseAtEnd() { camera.Close(); }
  };
  [[maybe_unused]] const CloseAtEnd closing{*this};
  const std::vector<std::string> lines = m_log.Lines();
  const std::string what = "cannot open the camera at " + ToText(request.size) + ", " +
                           std::to_string(request.fps) + " fps (result " + std::to_string(result) + ")";
  if (result == NUVEQ_CAMERA_ENCODER_FAILED) {
    throw Failure(ExitCode::kCannotOpen,
                  what + ReasonText(lines, "the encoder refuses this; choose another size with --size"));
  }
  throw Failure(ExitCode::kCannotOpen,
                what + ReasonText(lines,
                                  "choose a size with --size from those of 'nuveqcam list', or see all "
                                  "of the library's log with -v"));
}

void Camera::Close() {
  if (std::exchange(m_isOpen, false)) {
    m_table.CloseCameraDevice(m_openId.data(), static_cast<std::uint32_t>(m_openId.size()));
    receivingQueue = nullptr;
  }
}

std::string NoCameraText(const std::vector<CaptureDeviceInfo>& seen) {
  std::string text = std::string("this PC has no built-in camera; switch it on if it has one, or ") +
                     ThisSystem().withoutCamera;
  if (seen.empty()) {
    return text + "\nno capture device was seen";
  }
  text += "\ncapture devices seen:";
  for (const CaptureDeviceInfo& device : seen) {
    const std::string reason = device.exclusionReason.empty()
                                   ? "looks built in, but the library did not take it"
                                   : "not taken: " + SanitizeForTerminal(device.exclusionReason);
    text +=
        "\n  " + SanitizeForTerminal(device.where) + "  " + SanitizeForTerminal(device.name) + ", " + reason;
  }
  return text;
}
