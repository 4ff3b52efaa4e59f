#include "v4l2/V4l2Source.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <limits>
#include <utility>

#include "graph/StreamStats.h"

namespace v4l2 {

namespace {

// One is in the callback while the driver fills the others.
constexpr std::uint32_t kBuffers = 4;
// Consecutive failures after which a device counts as disconnected.
constexpr unsigned kMaxFailures = 30;
constexpr short kPollErrors = POLLERR | POLLHUP | POLLNVAL;

// Timeout for poll in milliseconds, rounded up so that a wait does not end before the deadline; -1: none.
int TimeoutUntil(graph::CaptureSource::Deadline deadline) {
  if (deadline == graph::CaptureSource::Deadline::max()) {
    return -1;
  }
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
  return static_cast<int>(
      std::clamp<std::chrono::milliseconds::rep>(left.count(), 0, std::numeric_limits<int>::max()));
}

}  // namespace

V4l2Source::V4l2Source(std::string path) : m_path(std::move(path)), m_buffers(m_device) {}

V4l2Source::~V4l2Source() { V4l2Source::Stop(); }

HRESULT V4l2Source::EnsureOpen() {
  return m_device.IsOpen() ? S_OK : HresultFromErrno(m_device.Open(m_path));
}

HRESULT V4l2Source::EnsureListed() {
  HRESULT hr = EnsureOpen();
  if (hr == S_OK && !m_isListed) {
    hr = ListV4l2Formats(m_device, m_offered);
    m_isListed = hr == S_OK;
  }
  return hr;
}

HRESULT V4l2Source::ListFormats(std::vector<graph::VideoFormat>& formats) {
  const HRESULT hr = EnsureListed();
  if (hr == S_OK) {
    std::transform(m_offered.begin(), m_offered.end(), std::back_inserter(formats),
                   [](const V4l2Format& offered) { return offered.format; });
  }
  return hr;
}

HRESULT V4l2Source::SetFormat(graph::VideoFormat& format) {
  if (const HRESULT hr = EnsureListed(); hr != S_OK) {
    return hr;
  }
  if (format.fourCc != graph::kYuyv && format.fourCc != graph::kMjpg) {
    return VFW_E_INVALIDMEDIATYPE;
  }
  const graph::VideoFormat request = format;
  const HRESULT hr = Apply(format);
  if (hr == S_OK) {
    m_request = request;
  }
  return hr;
}

HRESULT V4l2Source::Apply(graph::VideoFormat& format) {
  const V4l2Format choice = ChooseOffer(format);
  if (const int error = SetSizeAndPixelFormat(choice); error != 0) {
    return error == EINVAL ? VFW_E_INVALIDMEDIATYPE : HresultFromErrno(error);
  }
  return HresultFromErrno(SetRate(choice.interval, format.interval));
}

// Returns EINVAL if the driver substitutes another size or pixel format, whose frames would be misread.
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
  const v4l2_pix_format& actual = request.fmt.pix;
  if (actual.width != choice.format.width || actual.height != choice.format.height ||
      actual.pixelformat != choice.pixelFormat) {
    return EINVAL;
  }
  m_layout = actual;
  return 0;
}

V4l2Format V4l2Source::ChooseOffer(const graph::VideoFormat& wanted) const {
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

// Some drivers do not support setting the rate and deliver at their own rate.
int V4l2Source::SetRate(const v4l2_fract& interval, REFERENCE_TIME& actual) {
  v4l2_streamparm rate{};
  rate.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  int error = m_device.Ioctl(VIDIOC_G_PARM, &rate);
  if (error == 0 && (rate.parm.capture.capability & V4L2_CAP_TIMEPERFRAME) != 0) {
    rate.parm.capture.timeperframe = interval;
    error = m_device.Ioctl(VIDIOC_S_PARM, &rate);
  }
  if (error == 0) {
    const REFERENCE_TIME taken = ToReferenceTime(rate.parm.capture.timeperframe);
    actual = taken > 0 ? taken : actual;
  }
  return error == ENOTTY || error == EINVAL ? 0 : error;
}

std::size_t V4l2Source::MinBytes() const { return IsCompressed() ? 1 : m_packer.SourceBytes(); }

HRESULT V4l2Source::Start() {
  if (const HRESULT hr = EnsureListed(); hr != S_OK) {
    return hr;
  }
  // A rejected format or another program may have changed the device's format since SetFormat.
  graph::VideoFormat format = m_request;
  if (const HRESULT hr = Apply(format); hr != S_OK) {
    return hr;
  }
  m_interrupt.Clear();
  m_isDisconnected = false;
  m_failures = 0;
  m_numbers.Reset();
  m_packer = IsCompressed() ? Yuy2Packer() : Yuy2Packer(m_layout);
  if (const int error = m_buffers.Allocate(kBuffers, MinBytes()); error != 0) {
    return HresultFromErrno(error);
  }
  int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  if (const int error = m_device.Ioctl(VIDIOC_STREAMON, &type); error != 0) {
    m_buffers.Release();
    return HresultFromErrno(error);
  }
  m_start = std::chrono::steady_clock::now();
  m_isStreaming = true;
  return S_OK;
}

void V4l2Source::Stop() {
  if (!std::exchange(m_isStreaming, false)) {
    return;
  }
  // Fails for a disconnected device, which has stopped streaming.
  int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  static_cast<void>(m_device.Ioctl(VIDIOC_STREAMOFF, &type));
  m_buffers.Release();
  if (m_isDisconnected) {
    // While the node is open its number stays in use, and a reconnected camera gets another one.
    m_device.Close();
    m_isListed = false;
  }
}

graph::CaptureResult V4l2Source::Next(Deadline deadline, graph::CapturedFrame& frame) {
  while (!m_isDisconnected) {
    std::array<pollfd, 2> entries{
        {{m_device.Descriptor(), POLLIN, 0}, {m_interrupt.Descriptor(), POLLIN, 0}}};
    const int ready = m_device.System().Poll(entries.data(), entries.size(), TimeoutUntil(deadline));
    if (ready < 0) {
      m_isDisconnected = errno != EINTR;
      continue;
    }
    if (ready == 0) {
      return graph::CaptureResult::kTimeout;
    }
    if (entries[1].revents != 0) {
      return graph::CaptureResult::kInterrupted;
    }
    if (const auto arrival = TakeFrame((entries[0].revents & kPollErrors) != 0, frame)) {
      return *arrival;
    }
    // A run of damaged frames does not extend the deadline.
    if (!m_isDisconnected && std::chrono::steady_clock::now() >= deadline) {
      return graph::CaptureResult::kTimeout;
    }
  }
  return graph::CaptureResult::kDisconnected;
}

std::optional<graph::CaptureResult> V4l2Source::TakeFrame(bool hasPollError, graph::CapturedFrame& frame) {
  v4l2_buffer buffer{};
  const int error = m_buffers.Dequeue(buffer);
  if (error != 0) {
    // EAGAIN and single EIO errors are transient. Any other error, a poll error, or a long series of failures
    // would repeat for ever.
    const bool isTransient = error == EAGAIN || (error == EIO && ++m_failures < kMaxFailures);
    m_isDisconnected = hasPollError || !isTransient;
    graph::CurrentStreamStats().damaged += error == EIO && !m_isDisconnected ? 1 : 0;
    return std::nullopt;
  }
  m_failures = 0;
  if (IsInOrder(buffer) && IsWhole(buffer)) {
    FillFrame(buffer, frame);
    return graph::CaptureResult::kFrame;
  }
  m_isDisconnected = m_buffers.Queue(buffer.index) != 0;
  return std::nullopt;
}

bool V4l2Source::IsWhole(const v4l2_buffer& buffer) {
  if ((buffer.flags & V4L2_BUF_FLAG_ERROR) != 0) {
    ++graph::CurrentStreamStats().damaged;
    return false;
  }
  if (buffer.bytesused < MinBytes() || buffer.bytesused > m_buffers.Size(buffer.index)) {
    ++graph::CurrentStreamStats().tooShort;
    return false;
  }
  return true;
}

bool V4l2Source::IsInOrder(const v4l2_buffer& buffer) {
  const bool isDamaged = (buffer.flags & V4L2_BUF_FLAG_ERROR) != 0;
  const SequenceTracker::Result result = m_numbers.Take(buffer.sequence, isDamaged);
  graph::CurrentStreamStats().missed += result.missed;
  return !result.isLate;
}

void V4l2Source::FillFrame(const v4l2_buffer& buffer, graph::CapturedFrame& frame) {
  frame.buffer = buffer.index;
  frame.data = m_buffers.Data(buffer.index);
  frame.size = buffer.bytesused;
  frame.time = std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
  if (!IsCompressed()) {
    frame.data = m_packer.Pack(frame.data);
    // Some drivers round bytesused up.
    frame.size = m_packer.PackedBytes();
  }
}

void V4l2Source::Recycle(const graph::CapturedFrame& frame) {
  m_isDisconnected = m_buffers.Queue(frame.buffer) != 0;
}

}  // namespace v4l2
