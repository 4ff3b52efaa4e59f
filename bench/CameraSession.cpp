#include "CameraSession.h"

#include <atomic>
#include <stdexcept>
#include <string>
#include <thread>

#include "NUVEQCameraHandler.h"
#include "support/LoadedLibrary.h"
#include "support/scripted/ScriptedPlatform.h"

namespace {

using timed::Clock;

// Far longer than any frame takes.
constexpr std::chrono::seconds kPatience{60};
constexpr char kId[] = "0";

// When the data callbacks of a session began. Written on the encoder thread up to the count.
struct Arrivals {
  std::vector<Clock::time_point> times;
  std::atomic<std::size_t> count = 0;
};

Arrivals& TheArrivals() {
  static Arrivals arrivals;
  return arrivals;
}

std::int32_t OnData(const char* /*id*/, std::uint32_t /*idLen*/, const std::uint8_t* /*data*/,
                    std::uint32_t /*dataLen*/, std::int32_t /*reserved*/) {
  const Clock::time_point now = Clock::now();
  Arrivals& arrivals = TheArrivals();
  const std::size_t number = arrivals.count;
  if (number < arrivals.times.size()) {
    arrivals.times[number] = now;
    arrivals.count = number + 1;
  }
  return 0;
}

void Require(bool condition, const std::string& what) {
  if (!condition) {
    throw std::runtime_error(what);
  }
}

// The table of the library, loaded once as a platform loads it.
const NUVEQCameraHandler& Handler() {
  static LoadedLibrary library(NUVEQ_LIBRARY_FILE);
  static const NUVEQCameraHandler handler = [] {
    Require(library.Error().empty(), library.Error());
    NUVEQCameraHandler table{};
    Require(library.GetCameraHandler(&table) == NUVEQ_CAMERA_OK, "the library gives no table");
    Require(table.RegisterSendDataCallback(nullptr, 0, &OnData) == NUVEQ_CAMERA_OK, "no data callback");
    return table;
  }();
  return handler;
}

// The scripted platform with a camera that offers what the session wants.
void PresentCamera(const CameraSettings& settings) {
  scripted::Platform& platform = scripted::Platform::Get();
  // What every open leaves behind.
  platform.DisposeOf("current media type");
  // ARGB32 is what the graph makes of compressed pictures.
  const GUID subType = settings.layout == ColorSpace::kYuy2 ? MEDIASUBTYPE_YUY2 : MEDIASUBTYPE_MJPG;
  platform.Reset(
      scripted::LaptopPc({scripted::OfSubType(subType, settings.width, settings.height, settings.fps)}));
  platform.SetRecording(false);
}

void Query() {
  NUVEQCameraCapabilities* capabilities = nullptr;
  std::uint32_t count = 0;
  Require(Handler().GetCapability(&capabilities, &count) == NUVEQ_CAMERA_OK, "the query failed");
  Handler().ReleaseCapability(0, capabilities, count);
}

}  // namespace

CameraSession::CameraSession(const CameraSettings& settings, std::size_t frames) : m_frames(frames) {
  m_times.reserve(frames);
  TheArrivals().times.assign(frames, {});
  TheArrivals().count = 0;
  timed::Prepare(settings.sliceThreads, frames);
  PresentCamera(settings);
  Query();
  const NUVEQCameraParam param{kId, 1, static_cast<std::uint32_t>(settings.width),
                               static_cast<std::uint32_t>(settings.height),
                               static_cast<std::uint32_t>(settings.fps)};
  m_openStart = Clock::now();
  const std::int32_t result = Handler().OpenCameraDevice(&param);
  m_openTime = Clock::now() - m_openStart;
  if (result != NUVEQ_CAMERA_OK) {
    Handler().CloseCameraDevice(kId, 1);
    throw std::runtime_error("open answers " + std::to_string(result));
  }
  m_isOpen = true;
}

CameraSession::~CameraSession() {
  if (m_isOpen) {
    Handler().CloseCameraDevice(kId, 1);
  }
}

void CameraSession::Deliver(VideoFrame& frame) {
  Require(m_times.size() < m_frames, "more frames than the session has room for");
  ISampleGrabberCB* const callback = scripted::Platform::Get().GrabberCallback();
  Require(callback != nullptr, "the graph has no callback");
  FrameTimes times;
  times.entry = Clock::now();
  callback->BufferCB(0.0, frame.data, static_cast<LONG>(frame.size));
  times.returned = Clock::now();
  m_times.push_back(times);
}

std::vector<FrameTimes> CameraSession::Finish() {
  const Clock::time_point end = Clock::now() + kPatience;
  while (TheArrivals().count < m_times.size()) {
    Require(Clock::now() < end, "packets are missing");
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  for (std::size_t i = 0; i < m_times.size(); ++i) {
    m_times[i].encode = timed::Times()[i];
    m_times[i].callback = TheArrivals().times[i];
    Require(m_times[i].entry < m_times[i].encode.start && m_times[i].encode.end < m_times[i].callback,
            "the times of a frame are not in order: is the watch around the encoder library?");
    Require(m_times[i].encode.convert > Clock::duration::zero(), "the watch has seen no conversion");
  }
  return m_times;
}

void CameraSession::Close() {
  const Clock::time_point start = Clock::now();
  const std::int32_t result = Handler().CloseCameraDevice(kId, 1);
  m_closeTime = Clock::now() - start;
  m_isOpen = false;
  Require(result == 1, "close answers " + std::to_string(result));
}
