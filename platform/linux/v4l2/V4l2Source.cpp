#include "v4l2/V4l2Source.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <limits>
#include <utility>

#include "graph/StreamCounters.h"

namespace {

// One with the callback, the others for the driver to fill meanwhile.
constexpr std::uint32_t kBuffers = 4;
// In a row, after which a device counts as lost.
constexpr unsigned kMostFailures = 30;
constexpr short kAlarm = POLLERR | POLLHUP | POLLNVAL;

// Milliseconds for poll, rounded up so that a wait does not end just before its time; -1 for ever.
int TimeoutUntil(CaptureSource::Deadline deadline) {
  if (deadline == CaptureSource::Deadline::max()) {
    return -1;
  }
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
  return static_cast<int>(
      std::clamp<std::chrono::milliseconds::rep>(left.count(), 0, std::numeric_limits<int>::max()));
}

}  // namespace

V4l2Source::V4l2Source(std::string path) : m_path(std::move(path)), m_buffers(m_device) {}

V4l2Source::~V4l2Source() { V4l2Source::Stop(); }

HRESULT V4l2Source::EnsureOpen() { return m_device.IsOpen() ? S_OK : ResultOf(m_device.Open(m_path)); }

HRESULT V4l2Source::EnsureListed() {
  HRESULT hr = EnsureOpen();
  if (hr == S_OK && !m_isListed) {
    hr = ListV4l2Formats(m_device, m_offered);
    m_isListed = hr == S_OK;
  }
  return hr;
}

HRESULT V4l2Source::ListFormats(std::vector<VideoFormat>& formats) {
  const HRESULT hr = EnsureListed();
  if (hr == S_OK) {
    std::transform(m_offered.begin(), m_offered.end(), std::back_inserter(formats),
                   [](const V4l2Format& offered) { return offered.format; });
  }
  return hr;
}

HRESULT V4l2Source::SetFormat(VideoFormat& format) {
  if (const HRESULT hr = EnsureListed(); hr != S_OK) {
    return hr;
  }
  if (m_isStreaming) {
    return kDeviceInUse;
  }
  if (format.fourCc != kYuyv && format.fourCc != kMjpg) {
    return VFW_E_INVALIDMEDIATYPE;
  }
  const VideoFormat request = format;
  const HRESULT hr = Apply(format);
  if (hr == S_OK) {
    m_request = request;
    m_format = format;
  }
  return hr;
}

HRESULT V4l2Source::Apply(VideoFormat& format) {
  const V4l2Format choice = ChooseOffer(format);
  if (const int error = SetSizeAndPixelFormat(choice); error != 0) {
    return error == EINVAL ? VFW_E_INVALIDMEDIATYPE : ResultOf(error);
  }
  return ResultOf(SetRate(choice.interval, format.interval));
}

// EINVAL also when the driver takes something else in its place: frames of another size or format would be
// misread.
int V4l2Source::SetSizeAndPixelFormat(const V4l2Format& choice) {
  v4l2_format request{};
  request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  request.fmt.pix.width = choice.format.width;
  request.fmt.pix.height = choice.format.height;
  request.fmt.pix.pixelformat = choice.pixelFormat;
  request.fmt.pix.field = V4L2_FIELD_NONE;
  if (const int error = m_device.Ioctl(VIDIOC_S_FMT, &request); error != 0) {
    return error;
  }
  const v4l2_pix_format& taken = request.fmt.pix;
  if (taken.width != choice.format.width || taken.height != choice.format.height ||
      taken.pixelformat != choice.pixelFormat) {
    return EINVAL;
  }
  m_layout = taken;
  return 0;
}

V4l2Format V4l2Source::ChooseOffer(const VideoFormat& wanted) const {
  constexpr std::uint32_t kUnitsPerSecond = 10'000'000;
  const V4l2Format* nearest = nullptr;
  const auto units = std::clamp<REFERENCE_TIME>(wanted.interval, 1, std::numeric_limits<LONG>::max());
  const auto distance = [&](const V4l2Format& offered) { return std::abs(offered.format.interval - units); };
  for (const V4l2Format& offered : m_offered) {
    const bool isSamePicture = offered.format.fourCc == wanted.fourCc &&
                               offered.format.width == wanted.width && offered.format.height == wanted.height;
    if (isSamePicture && (nearest == nullptr || distance(offered) < distance(*nearest))) {
      nearest = &offered;
    }
  }
  if (nearest != nullptr) {
    return *nearest;
  }
  return {wanted, wanted.fourCc, {static_cast<std::uint32_t>(units), kUnitsPerSecond}};
}

// Not every driver lets the rate be set; it then delivers at a rate of its own.
int V4l2Source::SetRate(const v4l2_fract& interval, REFERENCE_TIME& actual) {
  v4l2_streamparm rate{};
  rate.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  int error = m_device.Ioctl(VIDIOC_G_PARM, &rate);
  if (error == 0 && (rate.parm.capture.capability & V4L2_CAP_TIMEPERFRAME) != 0) {
    rate.parm.capture.timeperframe = interval;
    error = m_device.Ioctl(VIDIOC_S_PARM, &rate);
  }
  if (error == 0) {
    const REFERENCE_TIME taken = UnitsOf(rate.parm.capture.timeperframe);
    actual = taken > 0 ? taken : actual;
  }
  return error == ENOTTY || error == EINVAL ? 0 : error;
}

std::size_t V4l2Source::MinBytes() const { return IsCompressed() ? 1 : m_packer.SourceBytes(); }

HRESULT V4l2Source::Start() {
  if (m_format.fourCc == 0) {
    return E_UNEXPECTED;
  }
  if (m_isStreaming) {
    return kDeviceInUse;
  }
  if (const HRESULT hr = EnsureListed(); hr != S_OK) {
    return hr;
  }
  // A format that was refused meanwhile, or another program, may have left the device in another one.
  VideoFormat format = m_request;
  if (const HRESULT hr = Apply(format); hr != S_OK) {
    return hr;
  }
  m_format = format;
  m_wakeUp.Clear();
  m_isLost = false;
  m_failures = 0;
  m_numbers.Reset();
  m_packer = IsCompressed() ? Yuy2Packer() : Yuy2Packer(m_layout);
  if (const int error = m_buffers.Allocate(kBuffers, MinBytes()); error != 0) {
    return ResultOf(error);
  }
  int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  if (const int error = m_device.Ioctl(VIDIOC_STREAMON, &type); error != 0) {
    m_buffers.Release();
    return ResultOf(error);
  }
  m_start = std::chrono::steady_clock::now();
  m_isStreaming = true;
  return S_OK;
}

void V4l2Source::Stop() {
  if (!std::exchange(m_isStreaming, false)) {
    return;
  }
  // Fails for a device that has gone, which streams no longer.
  int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  static_cast<void>(m_device.Ioctl(VIDIOC_STREAMOFF, &type));
  m_buffers.Release();
  if (m_isLost) {
    // As long as the node is open its number stays taken, and the camera comes back under another one.
    m_device.Close();
    m_isListed = false;
  }
}

Arrival V4l2Source::Next(Deadline deadline, CapturedFrame& frame) {
  while (!m_isLost) {
    std::array<pollfd, 2> entries{{{m_device.Descriptor(), POLLIN, 0}, {m_wakeUp.Descriptor(), POLLIN, 0}}};
    const int ready = m_device.Kernel().Poll(entries.data(), entries.size(), TimeoutUntil(deadline));
    if (ready < 0) {
      m_isLost = errno != EINTR;
      continue;
    }
    if (ready == 0) {
      return Arrival::kNothing;
    }
    if (entries[1].revents != 0) {
      return Arrival::kWoken;
    }
    if (const auto arrival = TakeFrame((entries[0].revents & kAlarm) != 0, frame)) {
      return *arrival;
    }
    // Damaged frames that come one after the other do not put the deadline off.
    if (deadline != Deadline::max() && std::chrono::steady_clock::now() >= deadline) {
      return m_isLost ? Arrival::kLost : Arrival::kNothing;
    }
  }
  return Arrival::kLost;
}

std::optional<Arrival> V4l2Source::TakeFrame(bool isAlarmed, CapturedFrame& frame) {
  v4l2_buffer buffer{};
  const int error = m_buffers.Dequeue(buffer);
  if (error != 0) {
    // A driver in trouble may fail some buffers and go on. But what raises the alarm as well, is no such
    // failure, or does not end, would be met again and again.
    const bool isPassing = error == EAGAIN || (error == EIO && ++m_failures < kMostFailures);
    m_isLost = isAlarmed || !isPassing;
    Counters().damaged += error == EIO && !m_isLost ? 1 : 0;
    return std::nullopt;
  }
  m_failures = 0;
  if (IsInOrder(buffer) && IsWhole(buffer)) {
    Present(buffer, frame);
    return Arrival::kFrame;
  }
  m_isLost = m_buffers.Queue(buffer.index) != 0;
  return std::nullopt;
}

bool V4l2Source::IsWhole(const v4l2_buffer& buffer) {
  if ((buffer.flags & V4L2_BUF_FLAG_ERROR) != 0) {
    ++Counters().damaged;
    return false;
  }
  if (buffer.bytesused < MinBytes() || buffer.bytesused > m_buffers.Size(buffer.index)) {
    ++Counters().tooShort;
    return false;
  }
  return true;
}

bool V4l2Source::IsInOrder(const v4l2_buffer& buffer) {
  const bool isDamaged = (buffer.flags & V4L2_BUF_FLAG_ERROR) != 0;
  const FrameNumbers::Finding finding = m_numbers.Take(buffer.sequence, isDamaged);
  Counters().missed += finding.missed;
  return !finding.isLate;
}

void V4l2Source::Present(const v4l2_buffer& buffer, CapturedFrame& frame) {
  frame.buffer = buffer.index;
  frame.data = m_buffers.Data(buffer.index);
  frame.size = buffer.bytesused;
  frame.time = std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
  if (!IsCompressed()) {
    frame.data = m_packer.Pack(frame.data);
    // Some drivers round up the bytes used.
    frame.size = m_packer.PackedBytes();
  }
}

void V4l2Source::Recycle(const CapturedFrame& frame) {
  m_isLost = m_buffers.Queue(frame.buffer) != 0 || m_isLost;
}
