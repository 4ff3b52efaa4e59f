// A camera library for the tests of nuveqcam: it has the function table of the product, and a camera that
// behaves as FakeCameraSettings.h describes. It writes no log.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "NUVEQCameraHandler.h"
#include "support/fakecamera/FakeCameraSettings.h"
#include "support/fakecamera/FakeStream.h"

namespace fake_camera {
namespace {

constexpr std::uint32_t kThousandths = 1000;

// The records of one query.
struct Records {
  explicit Records(const FakeCameraSettings& settings) {
    for (const FakeSize& size : settings.sizes) {
      resolutions.push_back({static_cast<std::int32_t>(size.width), static_cast<std::int32_t>(size.height)});
    }
    for (const std::uint32_t rate : settings.rates) {
      rates.push_back({rate * kThousandths, rate * kThousandths});
    }
    ability.resolutions = resolutions.data();
    ability.resolutionNum = static_cast<std::uint32_t>(resolutions.size());
    ability.fpsRanges = rates.data();
    ability.fpsRangeNum = static_cast<std::uint32_t>(rates.size());
    ability.abilityFlag = 1;
    capabilities.id = id.data();
    capabilities.idLen = static_cast<std::uint32_t>(id.size());
    capabilities.abilities = &ability;
    capabilities.abilityNum = 1;
  }
  Records(const Records&) = delete;
  Records& operator=(const Records&) = delete;

  std::string id = "0";
  std::vector<NUVEQResolution> resolutions;
  std::vector<NUVEQFpsRange> rates;
  NUVEQCameraAbility ability{};
  NUVEQCameraCapabilities capabilities{};
};

class FakeCamera {
 public:
  FakeCamera() {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing changes the environment
    const char* const text = std::getenv("NUVEQ_FAKE_CAMERA");
    m_settings = ParseFakeCamera(text != nullptr ? text : "");
  }

  void SetDataCallback(SendDataCallback callback) { m_dataCallback = callback; }
  void SetListener(const NUVEQServiceListener& listener) { m_listener = listener; }

  std::int32_t Query(NUVEQCameraCapabilities** capabilities, std::uint32_t* count) {
    FinishLatePacket();
    if (m_settings.isMissing) {
      NUVEQServiceAction action{NUVEQ_SERVICE_ACTION_CAMERA_DRIVER_ERROR,
                                NUVEQ_SERVICE_ACTION_CONTENT_NO_CAMERA,
                                sizeof(NUVEQ_SERVICE_ACTION_CONTENT_NO_CAMERA) - 1};
      if (m_listener.onAction != nullptr) {
        m_listener.onAction(nullptr, 1, &action);
      }
      return NUVEQ_CAMERA_NOT_USABLE;
    }
    if (m_settings.stopsAtQuery && m_stream != nullptr) {
      m_stream->Dry();
    }
    m_records.push_back(std::make_unique<Records>(m_settings));
    *capabilities = &m_records.back()->capabilities;
    *count = 1;
    return NUVEQ_CAMERA_OK;
  }

  void Release(const NUVEQCameraCapabilities* capabilities) {
    std::erase_if(m_records, [&](const auto& records) { return &records->capabilities == capabilities; });
  }

  std::int32_t Open(const NUVEQCameraParam& param) {
    FinishLatePacket();
    const std::string id(param.id, param.idLen);
    if (m_stream != nullptr) {
      SetPacketId(id);
      Report(id, NUVEQ_SERVICE_STATUS_CAMERA_OPEN);
      return m_settings.acceptsSecondOpen ? NUVEQ_CAMERA_OK : NUVEQ_CAMERA_ALREADY_OPEN;
    }
    const auto size = std::find_if(
        m_settings.sizes.begin(), m_settings.sizes.end(),
        [&](const FakeSize& known) { return known.width == param.width && known.height == param.height; });
    if (size == m_settings.sizes.end() || size->isRefused) {
      return NUVEQ_CAMERA_GRAPH_FAILED;
    }
    Log(param);
    SetPacketId(id);
    std::this_thread::sleep_for(std::chrono::milliseconds(size->startTime));
    Report(id, NUVEQ_SERVICE_STATUS_CAMERA_OPEN);
    constexpr std::uint32_t kKeyFrameSeconds = 5;
    m_stream = std::make_unique<FakeStream>(
        *size, param.fps, m_settings.keyFrameInterval.value_or(kKeyFrameSeconds * param.fps),
        [this](std::span<const std::uint8_t> packet) { Send(packet); });
    return NUVEQ_CAMERA_OK;
  }

  std::int32_t Close(const std::string& id) {
    FinishLatePacket();
    if (m_stream == nullptr) {
      return NUVEQ_CAMERA_CLOSE_INCOMPLETE;
    }
    m_stream.reset();
    Report(id, NUVEQ_SERVICE_STATUS_CAMERA_CLOSED);
    if (++m_closes == m_settings.lateAfterClose) {
      m_latePacket = std::thread([this] {
        // After the close has returned.
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        constexpr std::uint8_t kByte = 0;
        Send({&kByte, 1});
      });
    }
    return m_settings.closeResult.value_or(NUVEQ_CAMERA_CLOSED);
  }

 private:
  void Send(std::span<const std::uint8_t> packet) {
    std::string id;
    {
      const std::lock_guard lock(m_idMutex);
      id = m_packetId;
    }
    if (m_dataCallback != nullptr) {
      m_dataCallback(id.data(), static_cast<std::uint32_t>(id.size()), packet.data(),
                     static_cast<std::uint32_t>(packet.size()), 1);
    }
  }

  void SetPacketId(const std::string& id) {
    const std::lock_guard lock(m_idMutex);
    m_packetId = id;
  }

  void Report(const std::string& id, NUVEQServiceStatus status) const {
    if (m_listener.onStatus != nullptr && !m_settings.hasNoReports) {
      m_listener.onStatus(id.data(), static_cast<std::uint32_t>(id.size()), status);
    }
  }

  void Log(const NUVEQCameraParam& param) const {
    if (!m_settings.log.empty()) {
      std::ofstream(m_settings.log, std::ios::app)
          << param.width << "x" << param.height << " " << param.fps << "\n";
    }
  }

  // A joined thread does not outlive the library.
  void FinishLatePacket() {
    if (m_latePacket.joinable()) {
      m_latePacket.join();
    }
  }

  FakeCameraSettings m_settings;
  SendDataCallback m_dataCallback = nullptr;
  NUVEQServiceListener m_listener{};
  std::vector<std::unique_ptr<Records>> m_records;
  std::mutex m_idMutex;
  std::string m_packetId;
  std::unique_ptr<FakeStream> m_stream;
  std::uint32_t m_closes = 0;
  std::thread m_latePacket;
};

FakeCamera& TheCamera() {
  static FakeCamera camera;
  return camera;
}

}  // namespace
}  // namespace fake_camera

using fake_camera::TheCamera;

extern "C" {

static std::int32_t RegisterSendDataCallback(void* /*ignored*/, std::uint32_t /*ignoredLen*/,
                                             SendDataCallback callback) {
  TheCamera().SetDataCallback(callback);
  return NUVEQ_CAMERA_OK;
}

static std::int32_t OpenCameraDevice(const NUVEQCameraParam* param) { return TheCamera().Open(*param); }

static std::int32_t CloseCameraDevice(const char* id, std::uint32_t idLen) {
  return TheCamera().Close({id, idLen});
}

static std::int32_t GetCapability(NUVEQCameraCapabilities** capabilities, std::uint32_t* count) {
  return TheCamera().Query(capabilities, count);
}

static void ReleaseCapability(std::uint32_t /*ignored*/, NUVEQCameraCapabilities* capabilities,
                              std::uint32_t /*count*/) {
  TheCamera().Release(capabilities);
}

static std::int32_t RegisterServiceListener(const NUVEQServiceListener* listener) {
  TheCamera().SetListener(*listener);
  return NUVEQ_CAMERA_OK;
}

NUVEQ_EXPORT std::int32_t NUVEQGetCameraHandler(NUVEQCameraHandler* handler) {
  *handler = {};
  handler->RegisterSendDataCallback = RegisterSendDataCallback;
  handler->OpenCameraDevice = OpenCameraDevice;
  handler->CloseCameraDevice = CloseCameraDevice;
  handler->GetCapability = GetCapability;
  handler->ReleaseCapability = ReleaseCapability;
  handler->RegisterServiceListener = RegisterServiceListener;
  return NUVEQ_CAMERA_OK;
}

}  // extern "C"
