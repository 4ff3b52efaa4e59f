#include "CameraSession.h"

#include <atomic>
#include <stdexcept>
#include <string>
#include <thread>

#include "NUVEQCameraHandler.h"
#include "support/LoadedLibrary.h"
#include "support/scripted/ScriptedPlatform.h"

namespace bench {
namespace {

// Far above the duration of any frame.
constexpr std::chrono::seconds kTimeout{60};
constexpr char kCameraId[] = "0";

// Times of the data callbacks of a session. The encoder thread writes the entries before it increments count.
struct Arrivals {
  std::vector<Clock::time_point> times;
  std::atomic<std::size_t> count = 0;
};

Arrivals& CurrentArrivals() {
  static Arrivals arrivals;
  return arrivals;
}

std::int32_t OnData(const char* /*id*/, std::uint32_t /*idLen*/, const std::uint8_t* /*data*/,
                    std::uint32_t /*dataLen*/, std::int32_t /*reserved*/) {
  const Clock::time_point now = Clock::now();
  Arrivals& arrivals = CurrentArrivals();
  const std::size_t number = arrivals.count;
  if (number < arrivals.times.size()) {
    arrivals.times[number] = now;
    arrivals.count = number + 1;
  }
  return 0;
}

void Require(bool condition, const std::string& error) {
  if (!condition) {
    throw std::runtime_error(error);
  }
}

// Loads the library once, like a host, and returns its function table.
const NUVEQCameraHandler& Handler() {
  static LoadedLibrary library(NUVEQ_LIBRARY_FILE);
  static const NUVEQCameraHandler handler = [] {
    Require(library.Error().empty(), library.Error());
    NUVEQCameraHandler table{};
    Require(library.GetCameraHandler(&table) == NUVEQ_CAMERA_OK, "NUVEQGetCameraHandler failed");
    Require(table.RegisterSendDataCallback(nullptr, 0, &OnData) == NUVEQ_CAMERA_OK,
            "RegisterSendDataCallback failed");
    return table;
  }();
  return handler;
}

// Resets the scripted platform to a PC whose camera offers the format of the session.
void SetUpPlatform(const CameraSettings& settings) {
  scripted::Platform& platform = scripted::Platform::Get();
  // Every open leaks this structure by design.
  platform.DisposeOf("current media type");
  // The graph decodes compressed formats to ARGB32.
  const GUID subType = settings.layout == ColorSpace::kYuy2 ? MEDIASUBTYPE_YUY2 : MEDIASUBTYPE_MJPG;
  platform.Reset(
      scripted::LaptopPc({scripted::OfSubType(subType, settings.width, settings.height, settings.fps)}));
  platform.SetRecording(false);
}

void Query() {
  NUVEQCameraCapabilities* capabilities = nullptr;
  std::uint32_t count = 0;
  Require(Handler().GetCapability(&capabilities, &count) == NUVEQ_CAMERA_OK, "GetCapability failed");
  Handler().ReleaseCapability(0, capabilities, count);
}

}  // namespace

CameraSession::CameraSession(const CameraSettings& settings, std::size_t frames) : m_frames(frames) {
  m_times.reserve(frames);
  CurrentArrivals().times.assign(frames, {});
  CurrentArrivals().count = 0;
  StartRecording(settings.sliceThreads, frames);
  SetUpPlatform(settings);
  Query();
  const NUVEQCameraParam param{kCameraId, 1, static_cast<std::uint32_t>(settings.width),
                               static_cast<std::uint32_t>(settings.height),
                               static_cast<std::uint32_t>(settings.fps)};
  m_openStart = Clock::now();
  const std::int32_t result = Handler().OpenCameraDevice(&param);
  m_openTime = Clock::now() - m_openStart;
  if (result != NUVEQ_CAMERA_OK) {
    Handler().CloseCameraDevice(kCameraId, 1);
    throw std::runtime_error("OpenCameraDevice returned " + std::to_string(result));
  }
  m_isOpen = true;
}

CameraSession::~CameraSession() {
  if (m_isOpen) {
    Handler().CloseCameraDevice(kCameraId, 1);
  }
}

void CameraSession::Deliver(VideoFrame& frame) {
  Require(m_times.size() < m_frames, "more frames than the session was created for");
  ISampleGrabberCB* const callback = scripted::Platform::Get().GrabberCallback();
  Require(callback != nullptr, "the sample grabber has no callback");
  FrameTimes times;
  times.entry = Clock::now();
  callback->BufferCB(0.0, frame.data, static_cast<LONG>(frame.size));
  times.returned = Clock::now();
  m_times.push_back(times);
}

std::vector<FrameTimes> CameraSession::Finish() {
  const Clock::time_point end = Clock::now() + kTimeout;
  while (CurrentArrivals().count < m_times.size()) {
    Require(Clock::now() < end, "timeout: packets are missing");
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  for (std::size_t i = 0; i < m_times.size(); ++i) {
    m_times[i].encode = RecordedTimes()[i];
    m_times[i].callback = CurrentArrivals().times[i];
    Require(m_times[i].entry < m_times[i].encode.start && m_times[i].encode.end < m_times[i].callback,
            "the times of a frame are out of order: is the encoder library instrumented?");
    Require(m_times[i].encode.convert > Clock::duration::zero(), "no conversion time was recorded");
  }
  return m_times;
}

void CameraSession::Close() {
  const Clock::time_point start = Clock::now();
  const std::int32_t result = Handler().CloseCameraDevice(kCameraId, 1);
  m_closeTime = Clock::now() - start;
  m_isOpen = false;
  Require(result == 1, "CloseCameraDevice returned " + std::to_string(result));
}

}  // namespace bench
