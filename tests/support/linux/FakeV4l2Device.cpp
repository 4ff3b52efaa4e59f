#include "support/linux/FakeV4l2Device.h"

#include <algorithm>
#include <cerrno>

#include <poll.h>
#include <sys/eventfd.h>

#include "support/WaitFor.h"

namespace linux_support {
namespace {

constexpr std::uint32_t kCapture = V4L2_BUF_TYPE_VIDEO_CAPTURE;

}  // namespace

FakeV4l2Device::FakeV4l2Device(VideoDeviceSettings settings, MisuseList& misuse)
    : m_settings(std::move(settings)), m_misuse(misuse), m_queue(misuse) {
  if (!m_settings.formats.empty()) {
    const FormatOffer& format = m_settings.formats.front();
    m_format.pixelformat = format.pixelFormat;
    m_format.width = format.sizes.front().size.min_width;
    m_format.height = format.sizes.front().size.min_height;
    m_interval = format.sizes.front().intervals.values.front();
    Complete(m_format);
  }
}

void FakeV4l2Device::Open(int handle, bool isNonBlocking) {
  const std::lock_guard lock(m_mutex);
  m_handles[handle] = isNonBlocking;
}

void FakeV4l2Device::Close(int handle) {
  const std::lock_guard lock(m_mutex);
  m_queue.Release(handle);
  m_handles.erase(handle);
  if (m_privileged == handle) {
    m_privileged = -1;
  }
}

int FakeV4l2Device::Ioctl(int handle, unsigned long request, void* argument) {
  const std::lock_guard lock(m_mutex);
  if (m_isGone) {
    if (request == VIDIOC_STREAMOFF) {
      m_queue.AllowCloseWhileStreaming();
    }
    return ENODEV;
  }
  switch (request) {
    case VIDIOC_QUERYCAP:
      QueryCapabilities(*static_cast<v4l2_capability*>(argument));
      return 0;
    case VIDIOC_ENUM_FMT:
      return EnumFormat(m_settings.formats, *static_cast<v4l2_fmtdesc*>(argument));
    case VIDIOC_ENUM_FRAMESIZES:
      return EnumSize(m_settings.formats, *static_cast<v4l2_frmsizeenum*>(argument));
    case VIDIOC_ENUM_FRAMEINTERVALS:
      return EnumInterval(m_settings.formats, *static_cast<v4l2_frmivalenum*>(argument));
    case VIDIOC_G_FMT: {
      auto& format = *static_cast<v4l2_format*>(argument);
      format.fmt.pix = m_format;
      return format.type == kCapture ? 0 : EINVAL;
    }
    case VIDIOC_TRY_FMT:
      return TryFormat(*static_cast<v4l2_format*>(argument));
    case VIDIOC_S_FMT:
      return SetFormat(handle, *static_cast<v4l2_format*>(argument));
    case VIDIOC_G_PARM:
      return GetRate(*static_cast<v4l2_streamparm*>(argument));
    case VIDIOC_S_PARM:
      return SetRate(handle, *static_cast<v4l2_streamparm*>(argument));
    case VIDIOC_REQBUFS:
      return RequestBuffers(handle, *static_cast<v4l2_requestbuffers*>(argument));
    default:
      return QueueIoctl(handle, request, argument);
  }
}

int FakeV4l2Device::QueueIoctl(int handle, unsigned long request, void* argument) {
  if (request == VIDIOC_STREAMON || request == VIDIOC_STREAMOFF) {
    if (*static_cast<int*>(argument) != static_cast<int>(kCapture)) {
      return EINVAL;
    }
    const int error = request == VIDIOC_STREAMON ? m_queue.StreamOn(handle) : m_queue.StreamOff(handle);
    FillBuffers();
    return error;
  }
  if (request != VIDIOC_QUERYBUF && request != VIDIOC_QBUF && request != VIDIOC_DQBUF) {
    return ENOTTY;
  }
  auto& buffer = *static_cast<v4l2_buffer*>(argument);
  if (buffer.type != kCapture) {
    return EINVAL;
  }
  if (request == VIDIOC_QUERYBUF) {
    return m_queue.Query(buffer);
  }
  if (request == VIDIOC_QBUF) {
    const int error = m_queue.Queue(handle, buffer);
    FillBuffers();
    return error;
  }
  const int error = m_queue.Dequeue(handle, buffer);
  if (error == EAGAIN && !m_handles.at(handle)) {
    m_misuse.Add("blocking VIDIOC_DQBUF");
  }
  return error;
}

void* FakeV4l2Device::Map(std::size_t size, off_t offset, int& error) {
  const std::lock_guard lock(m_mutex);
  if (m_isGone) {
    error = ENODEV;
    return nullptr;
  }
  return m_queue.Map(size, offset, error);
}

bool FakeV4l2Device::Unmap(void* address, std::size_t size) {
  const std::lock_guard lock(m_mutex);
  return m_queue.Unmap(address, size);
}

short FakeV4l2Device::Events(int handle) {
  const std::lock_guard lock(m_mutex);
  eventfd_t ignored = 0;
  eventfd_read(handle, &ignored);
  if (m_isGone) {
    return POLLERR | POLLHUP;
  }
  if (!m_queue.IsStreaming() || m_queue.IsOwnedByOther(handle)) {
    return POLLERR;
  }
  if (m_queue.HasFrame()) {
    return POLLIN | POLLRDNORM;
  }
  return 0;
}

void FakeV4l2Device::CallFailed(unsigned long request, const void* argument) {
  const std::lock_guard lock(m_mutex);
  if (request == VIDIOC_STREAMOFF) {
    m_queue.AllowCloseWhileStreaming();
  }
  if (request == VIDIOC_QBUF) {
    m_queue.AllowDequeued(static_cast<const v4l2_buffer*>(argument)->index);
  }
}

void FakeV4l2Device::Supply(FakeFrame frame) {
  const std::lock_guard lock(m_mutex);
  m_supply.push_back(std::move(frame));
  ++m_supplied;
  FillBuffers();
}

bool FakeV4l2Device::Deliver(FakeFrame frame) {
  std::unique_lock lock(m_mutex);
  m_supply.push_back(std::move(frame));
  const std::uint64_t number = ++m_supplied;
  FillBuffers();
  return m_changed.wait_for(lock, kWaitTimeout, [&] { return m_filled >= number; });
}

void FakeV4l2Device::Disconnect() {
  const std::lock_guard lock(m_mutex);
  m_isDisconnected = true;
  FillBuffers();
}

void FakeV4l2Device::Unplug() {
  const std::lock_guard lock(m_mutex);
  m_isGone = true;
  SignalAll();
}

void FakeV4l2Device::SetSettings(const std::function<void(VideoDeviceSettings&)>& change) {
  const std::lock_guard lock(m_mutex);
  change(m_settings);
}

std::size_t FakeV4l2Device::OpenHandles() const {
  const std::lock_guard lock(m_mutex);
  return m_handles.size();
}

std::size_t FakeV4l2Device::Mappings() const {
  const std::lock_guard lock(m_mutex);
  return m_queue.Mappings();
}

bool FakeV4l2Device::IsStreaming() const {
  const std::lock_guard lock(m_mutex);
  return m_queue.IsStreaming();
}

bool FakeV4l2Device::IsBufferMemory(const std::uint8_t* from, std::size_t size) const {
  const std::lock_guard lock(m_mutex);
  return m_queue.IsMapped(from, size);
}

v4l2_pix_format FakeV4l2Device::Format() const {
  const std::lock_guard lock(m_mutex);
  return m_format;
}

v4l2_fract FakeV4l2Device::Interval() const {
  const std::lock_guard lock(m_mutex);
  return m_interval;
}

std::size_t FakeV4l2Device::PictureSize() const {
  const std::lock_guard lock(m_mutex);
  return m_format.sizeimage;
}

void FakeV4l2Device::QueryCapabilities(v4l2_capability& capability) const {
  capability = {};
  SetText(capability.driver, m_settings.driver);
  SetText(capability.card, m_settings.card);
  SetText(capability.bus_info, "usb-0000:00:14.0-5");
  capability.version = 0x060100;
  capability.capabilities = m_settings.deviceCapabilities;
  if (m_settings.reportsNodeCapabilities) {
    capability.capabilities |= V4L2_CAP_DEVICE_CAPS;
    capability.device_caps = m_settings.nodeCapabilities;
  }
}

void FakeV4l2Device::Complete(v4l2_pix_format& format) const {
  const bool isCompressed = IsCompressed(format.pixelformat);
  const std::uint32_t line = LineBytes(format.pixelformat, format.width) + m_settings.linePadding;
  format.field = V4L2_FIELD_NONE;
  format.bytesperline = isCompressed || !m_settings.reportsLineSize ? 0 : line;
  format.sizeimage = PictureBytes(format.pixelformat, line, format.height);
  format.colorspace = V4L2_COLORSPACE_SRGB;
}

int FakeV4l2Device::TryFormat(v4l2_format& format) const {
  if (format.type != kCapture) {
    return EINVAL;
  }
  v4l2_pix_format& requested = format.fmt.pix;
  if (FindSize(m_settings.formats, requested) == nullptr) {
    const auto same = std::find_if(
        m_settings.formats.begin(), m_settings.formats.end(),
        [&requested](const FormatOffer& offer) { return offer.pixelFormat == requested.pixelformat; });
    const FormatOffer& offer = same == m_settings.formats.end() ? m_settings.formats.front() : *same;
    requested.pixelformat = offer.pixelFormat;
    requested.width = offer.sizes.front().size.min_width;
    requested.height = offer.sizes.front().size.min_height;
  }
  if (m_settings.substituteFormat) {
    m_settings.substituteFormat(requested);
  }
  Complete(requested);
  return 0;
}

bool FakeV4l2Device::IsBusyFor(int handle) const {
  return m_queue.IsOwnedByOther(handle) ||
         (m_settings.hasPrivileges && m_privileged >= 0 && m_privileged != handle);
}

int FakeV4l2Device::SetFormat(int handle, v4l2_format& format) {
  if (m_queue.HasBuffers() || IsBusyFor(handle)) {
    return EBUSY;
  }
  if (const int error = TryFormat(format); error != 0) {
    return error;
  }
  m_privileged = handle;
  m_format = format.fmt.pix;
  // Drivers reset the rate when the format changes.
  if (const SizeOffer* const size = FindSize(m_settings.formats, m_format)) {
    m_interval = size->intervals.values.front();
  }
  return 0;
}

int FakeV4l2Device::GetRate(v4l2_streamparm& parameter) const {
  if (m_settings.rate == RateControl::kNone) {
    return ENOTTY;
  }
  if (parameter.type != kCapture) {
    return EINVAL;
  }
  parameter.parm.capture = {};
  parameter.parm.capture.timeperframe = m_interval;
  parameter.parm.capture.capability = m_settings.rate == RateControl::kSettable ? V4L2_CAP_TIMEPERFRAME : 0;
  parameter.parm.capture.readbuffers = 2;
  return 0;
}

int FakeV4l2Device::SetRate(int handle, v4l2_streamparm& parameter) {
  if (m_settings.rate == RateControl::kNone) {
    return ENOTTY;
  }
  if (m_queue.IsStreaming() || IsBusyFor(handle)) {
    return EBUSY;
  }
  const v4l2_fract requested = parameter.parm.capture.timeperframe;
  if (m_settings.rate == RateControl::kSettable && parameter.type == kCapture) {
    const SizeOffer* const size = FindSize(m_settings.formats, m_format);
    m_interval = size != nullptr ? Nearest(size->intervals, requested) : m_interval;
    if (m_settings.substituteInterval) {
      m_settings.substituteInterval(m_interval);
    }
    m_privileged = handle;
  }
  return GetRate(parameter);
}

int FakeV4l2Device::RequestBuffers(int handle, v4l2_requestbuffers& request) {
  if (request.type != kCapture || request.memory != V4L2_MEMORY_MMAP) {
    return EINVAL;
  }
  if (IsBusyFor(handle)) {
    return EBUSY;
  }
  request.count = std::min(request.count, m_settings.maxBufferCount);
  return m_queue.Request(handle, request.count, m_settings.bufferSize.value_or(m_format.sizeimage));
}

// Called after every change: fills buffers and wakes all waiters.
void FakeV4l2Device::FillBuffers() {
  while (m_isDisconnected && m_queue.HasRoom() && !m_isGone) {
    m_queue.Fill({{}, V4L2_BUF_FLAG_ERROR, {}, 0, {}});
  }
  while (!m_supply.empty() && m_queue.HasRoom() && !m_isGone) {
    m_queue.Fill(m_supply.front());
    m_supply.pop_front();
    ++m_filled;
  }
  SignalAll();
}

void FakeV4l2Device::SignalAll() {
  for (const auto& [handle, isNonBlocking] : m_handles) {
    eventfd_write(handle, 1);
  }
  m_changed.notify_all();
}

}  // namespace linux_support
