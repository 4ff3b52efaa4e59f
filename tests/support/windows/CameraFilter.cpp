#include "support/windows/CameraFilter.h"

#include <turbojpeg.h>

#include <algorithm>

#include "simulated/FramePacker.h"
#include "simulated/NumberedPicture.h"
#include "support/windows/Registration.h"

namespace fixtures {
namespace {

using Ticks = std::chrono::duration<REFERENCE_TIME, std::ratio<1, kUnitsPerSecond>>;

DWORD MaxFrameSize(const Format& format) {
  if (format.layout == Layout::kYuy2) {
    return 2 * format.width * format.height;
  }
  return static_cast<DWORD>(
      tjBufSize(static_cast<int>(format.width), static_cast<int>(format.height), TJSAMP_422));
}

Video ToVideo(const Format& format) {
  Video video;
  video.subtype = format.layout == Layout::kYuy2 ? MEDIASUBTYPE_YUY2 : MEDIASUBTYPE_MJPG;
  video.width = static_cast<LONG>(format.width);
  video.height = static_cast<LONG>(format.height);
  video.interval = kUnitsPerSecond / std::max<std::uint32_t>(format.fps, 1);
  video.sampleSize = MaxFrameSize(format);
  video.isVideoInfo2 = format.isVideoInfo2;
  return video;
}

REFERENCE_TIME Distance(REFERENCE_TIME a, REFERENCE_TIME b) { return a < b ? b - a : a - b; }

graph::VideoFormat ToPackerFormat(const Video& video) {
  return {video.subtype == MEDIASUBTYPE_MJPG ? graph::kMjpg : graph::kYuyv,
          static_cast<std::uint32_t>(video.width), static_cast<std::uint32_t>(video.height), video.interval};
}

}  // namespace

HRESULT STDMETHODCALLTYPE CameraPin::Connect(IPin* receiver, const AM_MEDIA_TYPE* type) {
  return m_behaviour.connect != S_OK ? m_behaviour.connect : OutputPin::Connect(receiver, type);
}

HRESULT STDMETHODCALLTYPE CameraPin::SetFormat(AM_MEDIA_TYPE* type) {
  if (m_behaviour.setFormat != S_OK) {
    return m_behaviour.setFormat;
  }
  return com::CatchToHresult([&]() -> HRESULT {
    if (type == nullptr) {
      m_selected.reset();
      return S_OK;
    }
    if (Owner().State() != State_Stopped) {
      return VFW_E_NOT_STOPPED;
    }
    if (IsConnected()) {
      return VFW_E_ALREADY_CONNECTED;
    }
    const std::optional<Video> wanted = ReadVideoType(*type);
    const Format* const format = wanted ? Nearest(*wanted) : nullptr;
    if (format == nullptr) {
      return VFW_E_INVALIDMEDIATYPE;
    }
    m_selected = MakeVideoType(ToVideo(*format));
    return S_OK;
  });
}

HRESULT STDMETHODCALLTYPE CameraPin::GetFormat(AM_MEDIA_TYPE** type) {
  if (type == nullptr) {
    return E_POINTER;
  }
  *type = nullptr;
  return com::CatchToHresult([&]() -> HRESULT {
    if (IsConnected()) {
      return MediaType(Type()).CopyTo(type);
    }
    const std::vector<MediaType> types = Types();
    return types.empty() ? VFW_E_NO_TYPES : types.front().CopyTo(type);
  });
}

HRESULT STDMETHODCALLTYPE CameraPin::GetNumberOfCapabilities(int* /*count*/, int* /*size*/) {
  return E_NOTIMPL;
}

HRESULT STDMETHODCALLTYPE CameraPin::GetStreamCaps(int /*index*/, AM_MEDIA_TYPE** /*type*/, BYTE* /*caps*/) {
  return E_NOTIMPL;
}

std::vector<MediaType> CameraPin::Types() { return m_selected ? std::vector{*m_selected} : AllTypes(); }

std::vector<MediaType> CameraPin::AllTypes() const {
  std::vector<MediaType> types;
  for (const Format& format : m_behaviour.formats) {
    types.push_back(MakeVideoType(ToVideo(format)));
  }
  return types;
}

std::size_t CameraPin::SampleSize(const AM_MEDIA_TYPE& type) {
  const std::optional<Video> video = ReadVideoType(type);
  return video ? std::size_t{video->sampleSize} + m_behaviour.extraBytes : 0;
}

const Format* CameraPin::Nearest(const Video& wanted) const {
  const Format* nearest = nullptr;
  REFERENCE_TIME nearestDistance = 0;
  for (const Format& format : m_behaviour.formats) {
    const Video offered = ToVideo(format);
    const REFERENCE_TIME distance = Distance(offered.interval, wanted.interval);
    if (offered.subtype == wanted.subtype && offered.width == wanted.width &&
        offered.height == wanted.height && offered.isVideoInfo2 == wanted.isVideoInfo2 &&
        (nearest == nullptr || distance < nearestDistance)) {
      nearest = &format;
      nearestDistance = distance;
    }
  }
  return nearest;
}

CameraFilter::CameraFilter(Camera camera)
    : Filter(camera == Camera::kBuiltIn ? kBuiltInCameraClass : kPlugInCameraClass),
      m_camera(camera),
      m_behaviour(CurrentBehaviour(camera)),
      m_pin(*this, m_behaviour) {}

CameraFilter::~CameraFilter() { CameraFilter::Halt(); }

HRESULT CameraFilter::Prepare() {
  // Wine's graph pauses its filters before it runs them and reports only failures of Pause.
  return m_behaviour.run != S_OK ? m_behaviour.run : m_pin.Commit();
}

void CameraFilter::Unprepare() { m_pin.Decommit(); }

HRESULT CameraFilter::Start() {
  const std::optional<Video> video =
      m_pin.IsConnected() ? ReadVideoType(m_pin.Type()) : std::optional<Video>();
  if (!video) {
    return S_OK;
  }
  DeliveredFrameCount(m_camera) = 0;
  LastLayout(m_camera) = video->subtype == MEDIASUBTYPE_MJPG ? Layout::kMjpg : Layout::kYuy2;
  m_isStopping = false;
  m_thread = std::thread([this, video] { Stream(*video); });
  return S_OK;
}

void CameraFilter::Halt() {
  if (!m_thread.joinable()) {
    return;
  }
  {
    const std::lock_guard lock(m_mutex);
    m_isStopping = true;
  }
  m_stopping.notify_all();
  // Wakes the thread if it waits for a buffer.
  m_pin.Decommit();
  m_thread.join();
  m_pin.Commit();
}

void CameraFilter::Stream(const Video& video) {
  ++StreamingThreadCount();
  try {
    DeliverFrames(video);
  } catch (const std::exception&) {
    NotifyGraph(EC_ERRORABORT, E_FAIL, 0);
  }
  --StreamingThreadCount();
}

void CameraFilter::DeliverFrames(const Video& video) {
  const graph::VideoFormat format = ToPackerFormat(video);
  simulated::NumberedPicture picture(format.width, format.height);
  simulated::FramePacker packer(format);
  const bool isPaced = m_behaviour.pace == Pace::kRealTime;
  const Clock::time_point started = Clock::now();
  for (std::uint64_t number = 0;; ++number) {
    if (m_behaviour.lostAfter != 0 && number == m_behaviour.lostAfter) {
      NotifyGraph(EC_DEVICE_LOST, reinterpret_cast<LONG_PTR>(static_cast<IBaseFilter*>(this)), 0);
      m_pin.DeliverEndOfStream();
      return;
    }
    const std::span<const std::uint8_t> frame =
        packer.Pack(picture.Paint(static_cast<std::uint32_t>(number)));
    const auto due = isPaced ? started + std::chrono::duration_cast<Clock::duration>(
                                             Ticks(static_cast<REFERENCE_TIME>(number) * video.interval))
                             : started;
    if (!WaitUntil(due) || !DeliverFrame(frame, number, video.interval)) {
      return;
    }
  }
}

bool CameraFilter::WaitUntil(Clock::time_point due) {
  std::unique_lock lock(m_mutex);
  m_stopping.wait_until(lock, due, [this] { return m_isStopping; });
  return !m_isStopping;
}

bool CameraFilter::DeliverFrame(std::span<const std::uint8_t> frame, std::uint64_t number,
                                REFERENCE_TIME interval) {
  ComPtr<IMediaSample> sample;
  if (FAILED(m_pin.GetSample(sample)) || !sample) {
    return false;
  }
  const std::span<BYTE> buffer = BufferOf(*sample.Get());
  const std::size_t length = frame.size() + m_behaviour.extraBytes;
  if (buffer.size() < length) {
    NotifyGraph(EC_ERRORABORT, VFW_E_BUFFER_OVERFLOW, 0);
    return false;
  }
  std::fill(std::copy(frame.begin(), frame.end(), buffer.begin()),
            buffer.begin() + static_cast<std::ptrdiff_t>(length), BYTE{0});
  REFERENCE_TIME start = static_cast<REFERENCE_TIME>(number) * interval;
  REFERENCE_TIME end = start + interval;
  sample->SetActualDataLength(static_cast<LONG>(length));
  sample->SetTime(&start, &end);
  sample->SetSyncPoint(TRUE);
  sample->SetDiscontinuity(number == 0 ? TRUE : FALSE);
  // Counted first, so that the count is never below the number of frames that a consumer has received.
  ++DeliveredFrameCount(m_camera);
  if (m_pin.Deliver(*sample.Get()) == S_OK) {
    return true;
  }
  --DeliveredFrameCount(m_camera);
  return false;
}

}  // namespace fixtures
