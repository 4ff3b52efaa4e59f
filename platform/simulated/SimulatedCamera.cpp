#include "simulated/SimulatedCamera.h"

#include <algorithm>
#include <new>
#include <stdexcept>
#include <utility>

#include "simulated/ClipPlayer.h"
#include "simulated/NumberedPicture.h"

namespace simulated {
namespace {

using Clock = std::chrono::steady_clock;
using Ticks = std::chrono::duration<REFERENCE_TIME, std::ratio<1, 10'000'000>>;

REFERENCE_TIME Distance(REFERENCE_TIME a, REFERENCE_TIME b) { return a < b ? b - a : a - b; }

}  // namespace

void SimulatedDevice::SetPresent(bool isPresent) {
  {
    const std::lock_guard lock(m_mutex);
    m_isPresent = isPresent;
    if (!isPresent) {
      m_streaming = nullptr;
    }
  }
  m_changed.notify_all();
}

bool SimulatedDevice::IsPresent() {
  const std::lock_guard lock(m_mutex);
  return m_isPresent;
}

void SimulatedDevice::SetFrozen(bool isFrozen) {
  {
    const std::lock_guard lock(m_mutex);
    if (m_isFrozen && !isFrozen) {
      m_freezeEnd = Clock::now();
    }
    m_isFrozen = isFrozen;
  }
  m_changed.notify_all();
}

HRESULT SimulatedCamera::ListFormats(std::vector<graph::VideoFormat>& formats) {
  if (!m_device->IsPresent()) {
    return com::kDeviceGone;
  }
  formats = m_device->m_formats;
  return S_OK;
}

HRESULT SimulatedCamera::SetFormat(graph::VideoFormat& format) {
  {
    const std::lock_guard lock(m_device->m_mutex);
    if (!m_device->m_isPresent) {
      return com::kDeviceGone;
    }
    if (m_device->m_streaming == this) {
      return com::kDeviceInUse;
    }
  }
  const graph::VideoFormat* nearest = nullptr;
  for (const graph::VideoFormat& offered : m_device->m_formats) {
    if (offered.fourCc == format.fourCc && offered.width == format.width && offered.height == format.height &&
        (nearest == nullptr ||
         Distance(offered.interval, format.interval) < Distance(nearest->interval, format.interval))) {
      nearest = &offered;
    }
  }
  if (nearest == nullptr) {
    return VFW_E_INVALIDMEDIATYPE;
  }
  m_format = *nearest;
  format = m_format;
  return S_OK;
}

HRESULT SimulatedCamera::Start() {
  {
    const std::lock_guard lock(m_device->m_mutex);
    if (!m_device->m_isPresent) {
      return com::kDeviceGone;
    }
    if (m_format.width == 0) {
      return E_UNEXPECTED;
    }
    if (m_device->m_streaming != nullptr) {
      return com::kDeviceInUse;
    }
    m_device->m_streaming = this;
    m_isInterrupted = false;
  }
  HRESULT result = S_OK;
  try {
    m_nextPicture = MakePictureSource();
    m_packer = std::make_unique<FramePacker>(m_format);
  } catch (const std::bad_alloc&) {
    result = E_OUTOFMEMORY;
  } catch (const std::exception&) {
    result = com::kDeviceIoError;
  }
  if (result != S_OK) {
    Stop();
    return result;
  }
  m_outstanding = nullptr;
  m_started = Clock::now();
  m_due = m_started;
  return S_OK;
}

SimulatedCamera::PictureSource SimulatedCamera::MakePictureSource() const {
  if (!m_device->m_clip.empty()) {
    auto player = std::make_shared<ClipPlayer>(m_device->m_clip, m_format.width, m_format.height);
    return [player]() -> const std::vector<std::uint8_t>& { return player->Next(); };
  }
  auto picture = std::make_shared<NumberedPicture>(m_format.width, m_format.height);
  return [picture, number = std::uint32_t{0}]() mutable -> const std::vector<std::uint8_t>& {
    return picture->Paint(number++);
  };
}

graph::CaptureResult SimulatedCamera::Next(Deadline deadline, graph::CapturedFrame& frame) {
  const graph::CaptureResult result = Wait(deadline);
  if (result != graph::CaptureResult::kFrame) {
    return result;
  }
  try {
    Deliver(frame);
  } catch (const std::exception&) {
    // The clip can no longer be played.
    ReleaseDevice();
    return graph::CaptureResult::kDisconnected;
  }
  return graph::CaptureResult::kFrame;
}

graph::CaptureResult SimulatedCamera::Wait(Deadline deadline) {
  std::unique_lock lock(m_device->m_mutex);
  for (;;) {
    if (m_isInterrupted) {
      return graph::CaptureResult::kInterrupted;
    }
    if (m_device->m_streaming != this) {
      return graph::CaptureResult::kDisconnected;
    }
    // No frames are due for the time in which the camera was frozen.
    m_due = std::max(m_due, m_device->m_freezeEnd);
    const bool isReady = !m_device->m_isFrozen && m_outstanding == nullptr;
    const Deadline now = Clock::now();
    if (isReady && (m_device->m_pace == Pace::kUnpaced || m_due <= now)) {
      return graph::CaptureResult::kFrame;
    }
    if (deadline <= now) {
      return graph::CaptureResult::kTimeout;
    }
    m_device->m_changed.wait_until(lock, isReady ? std::min(deadline, m_due) : deadline);
  }
}

void SimulatedCamera::Deliver(graph::CapturedFrame& frame) {
  const std::span<std::uint8_t> bytes = m_packer->Pack(m_nextPicture());
  frame.data = bytes.data();
  frame.size = bytes.size();
  frame.buffer = 0;
  frame.time = std::chrono::duration<double>(m_due - m_started).count();
  m_outstanding = bytes.data();
  m_due += std::chrono::duration_cast<Clock::duration>(Ticks(m_format.interval));
}

void SimulatedCamera::Recycle(const graph::CapturedFrame& frame) {
  if (frame.buffer == 0 && frame.data == m_outstanding) {
    m_outstanding = nullptr;
  }
}

void SimulatedCamera::Stop() {
  ReleaseDevice();
  m_nextPicture = nullptr;
  m_packer.reset();
  m_outstanding = nullptr;
}

void SimulatedCamera::ReleaseDevice() {
  const std::lock_guard lock(m_device->m_mutex);
  if (m_device->m_streaming == this) {
    m_device->m_streaming = nullptr;
  }
}

void SimulatedCamera::Interrupt() {
  {
    const std::lock_guard lock(m_device->m_mutex);
    m_isInterrupted = true;
  }
  m_device->m_changed.notify_all();
}

}  // namespace simulated
