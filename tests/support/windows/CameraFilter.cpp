#include "support/windows/CameraFilter.h"

#include <algorithm>

#include "simulated/FramePacker.h"
#include "simulated/NumberedPicture.h"
#include "support/windows/ClassIds.h"

namespace fixtures {
namespace {

using Ticks = std::chrono::duration<REFERENCE_TIME, std::ratio<1, 10'000'000>>;

graph::VideoFormat PackedFormat(const Video& video) {
  return {video.subtype == MEDIASUBTYPE_MJPG ? graph::kMjpg : graph::kYuyv,
          static_cast<std::uint32_t>(video.width), static_cast<std::uint32_t>(video.height), video.interval};
}

}  // namespace

CameraFilter::CameraFilter(Camera camera)
    : Filter(camera == Camera::kBuiltIn ? kBuiltInCameraClass : kPlugInCameraClass),
      m_camera(camera),
      m_behaviour(CurrentBehaviour(camera)),
      m_pin(*this, m_behaviour) {}

CameraFilter::~CameraFilter() { CameraFilter::Hold(); }

HRESULT CameraFilter::Prepare() {
  // Wine's graph pauses its filters on the way to running and reports only what fails there.
  return m_behaviour.run != S_OK ? m_behaviour.run : m_pin.Commit();
}

void CameraFilter::Unprepare() { m_pin.Decommit(); }

HRESULT CameraFilter::Start() {
  const std::optional<Video> video =
      m_pin.IsConnected() ? ReadVideoType(m_pin.Type()) : std::optional<Video>();
  if (!video) {
    return S_OK;
  }
  CountersOf(m_camera).delivered = 0;
  ++CountersOf(m_camera).runs;
  m_isStopping = false;
  m_thread = std::thread([this, video] { Stream(*video); });
  return S_OK;
}

void CameraFilter::Hold() {
  if (!m_thread.joinable()) {
    return;
  }
  {
    const std::lock_guard lock(m_mutex);
    m_isStopping = true;
  }
  m_stopping.notify_all();
  // Sends the thread on its way where it waits for a buffer.
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
  const graph::VideoFormat format = PackedFormat(video);
  simulated::NumberedPicture picture(format.width, format.height);
  simulated::FramePacker packer(format);
  const bool isPaced = IsPaced(m_behaviour);
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
  const std::span<BYTE> room = RoomOf(*sample.Get());
  const std::size_t length = frame.size() + m_behaviour.extraBytes;
  if (room.size() < length) {
    NotifyGraph(EC_ERRORABORT, VFW_E_BUFFER_OVERFLOW, 0);
    return false;
  }
  std::fill(std::copy(frame.begin(), frame.end(), room.begin()),
            room.begin() + static_cast<std::ptrdiff_t>(length), BYTE{0});
  REFERENCE_TIME start = static_cast<REFERENCE_TIME>(number) * interval;
  REFERENCE_TIME end = start + interval;
  sample->SetActualDataLength(static_cast<LONG>(length));
  sample->SetTime(&start, &end);
  sample->SetSyncPoint(TRUE);
  sample->SetDiscontinuity(number == 0 ? TRUE : FALSE);
  // Counted before it is seen, so that nobody sees more frames than have been counted.
  ++CountersOf(m_camera).delivered;
  if (m_pin.Deliver(*sample.Get()) == S_OK) {
    return true;
  }
  --CountersOf(m_camera).delivered;
  return false;
}

}  // namespace fixtures
