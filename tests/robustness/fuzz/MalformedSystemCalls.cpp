#include "MalformedSystemCalls.h"

#include <sys/mman.h>

#include <cerrno>

#include "Require.h"

namespace {

constexpr std::array kErrors = {EINVAL, ENOTTY, EBUSY,  ENODEV, EIO,    EAGAIN, EINTR,
                                EACCES, ENOSPC, EPROTO, ENOMEM, ENOENT, EMFILE, ETIMEDOUT};
constexpr std::array<std::uint32_t, 14> kSides = {64,  48,  16,    2,          1,          0,          17,
                                                  640, 480, 65535, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF, 63};
constexpr std::array<std::uint32_t, 8> kFourCcs = {
    V4L2_PIX_FMT_YUYV, V4L2_PIX_FMT_MJPEG, V4L2_PIX_FMT_NV12,   0,
    V4L2_PIX_FMT_H264, V4L2_PIX_FMT_UYVY,  V4L2_PIX_FMT_YVU420, V4L2_PIX_FMT_NV61};
constexpr std::array<v4l2_fract, 8> kFractions = {
    {{1, 30}, {1, 15}, {0, 0}, {0, 1}, {1, 0}, {0xFFFFFFFF, 1}, {1, 0xFFFFFFFF}, {1001, 30000}}};
// Frame memory above this is refused, as by a machine that has no more.
constexpr std::size_t kMaxBytes = 1 << 20;
// What drivers give at most.
constexpr std::uint32_t kMaxBuffers = 32;
// Control bytes from here on are lies; below them, and above 0, error numbers.
constexpr std::uint8_t kLies = 0x40;

constexpr std::uint32_t kEnds = 2;  // entries of an enumeration that behaves

int Fail(int error) {
  errno = error;
  return -1;
}

}  // namespace

int MalformedSystemCalls::Open(const char* /*path*/, int /*flags*/) {
  const std::lock_guard lock(m_mutex);
  if (const std::uint8_t control = m_reader.Byte(); control != 0) {
    return Fail(kErrors[control % kErrors.size()]);
  }
  m_open.insert(++m_nextDescriptor);
  return m_nextDescriptor;
}

int MalformedSystemCalls::Close(int descriptor) {
  const std::lock_guard lock(m_mutex);
  Require(m_open.erase(descriptor) == 1, "what is closed was open");
  return 0;
}

int MalformedSystemCalls::Ioctl(int descriptor, unsigned long request, void* argument) {
  const std::lock_guard lock(m_mutex);
  Require(m_open.contains(descriptor), "what is asked is open");
  const std::uint8_t control = m_reader.Byte();
  if (control != 0 && control < kLies) {
    return Fail(kErrors[control % kErrors.size()]);
  }
  const int error = Answer(request, argument, control != 0);
  return error == 0 ? 0 : Fail(error);
}

int MalformedSystemCalls::Answer(unsigned long request, void* argument, bool lies) {
  switch (request) {
    case VIDIOC_QUERYCAP: {
      auto& capability = *static_cast<v4l2_capability*>(argument);
      constexpr std::uint32_t kGood = V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_STREAMING;
      capability.capabilities = lies ? m_reader.Value<std::uint32_t>() : kGood | V4L2_CAP_DEVICE_CAPS;
      capability.device_caps = lies ? m_reader.Value<std::uint32_t>() : kGood;
      return 0;
    }
    case VIDIOC_ENUM_FMT:
      return EnumFormat(*static_cast<v4l2_fmtdesc*>(argument), lies);
    case VIDIOC_ENUM_FRAMESIZES:
      return EnumSize(*static_cast<v4l2_frmsizeenum*>(argument), lies);
    case VIDIOC_ENUM_FRAMEINTERVALS:
      return EnumInterval(*static_cast<v4l2_frmivalenum*>(argument), lies);
    case VIDIOC_G_FMT:
    case VIDIOC_S_FMT:
      DescribeFormat(*static_cast<v4l2_format*>(argument), lies);
      return 0;
    case VIDIOC_G_PARM:
    case VIDIOC_S_PARM:
      DescribeRate(*static_cast<v4l2_streamparm*>(argument), lies);
      return 0;
    case VIDIOC_REQBUFS:
      return RequestBuffers(*static_cast<v4l2_requestbuffers*>(argument), lies);
    case VIDIOC_QUERYBUF:
      return QueryBuffer(*static_cast<v4l2_buffer*>(argument), lies);
    case VIDIOC_QBUF:
      m_queue.push_back(static_cast<v4l2_buffer*>(argument)->index);
      return 0;
    case VIDIOC_DQBUF:
      return Dequeue(*static_cast<v4l2_buffer*>(argument), lies);
    case VIDIOC_STREAMOFF:
      m_queue.clear();
      return 0;
    case VIDIOC_STREAMON:
      return 0;
    default:
      Require(false, "the platform makes calls that cameras know", std::to_string(request));
      return ENOTTY;
  }
}

std::uint32_t MalformedSystemCalls::Side() {
  const std::uint8_t choice = m_reader.Byte();
  return choice == 0xFF ? m_reader.Value<std::uint32_t>() : kSides[choice % kSides.size()];
}

std::uint32_t MalformedSystemCalls::FourCc() {
  const std::uint8_t choice = m_reader.Byte();
  return choice == 0xFF ? m_reader.Value<std::uint32_t>() : kFourCcs[choice % kFourCcs.size()];
}

v4l2_fract MalformedSystemCalls::Fraction() {
  const std::uint8_t choice = m_reader.Byte();
  return choice == 0xFF ? v4l2_fract{m_reader.Value<std::uint32_t>(), m_reader.Value<std::uint32_t>()}
                        : kFractions[choice % kFractions.size()];
}

int MalformedSystemCalls::EnumFormat(v4l2_fmtdesc& entry, bool lies) {
  entry.pixelformat = lies ? FourCc() : kFourCcs[entry.index % kEnds];
  return !lies && entry.index >= kEnds ? EINVAL : 0;
}

int MalformedSystemCalls::EnumSize(v4l2_frmsizeenum& entry, bool lies) {
  entry.type = lies ? m_reader.Byte() % 4U : V4L2_FRMSIZE_TYPE_DISCRETE;
  if (entry.type == V4L2_FRMSIZE_TYPE_DISCRETE) {
    entry.discrete = {lies ? Side() : kSides[0], lies ? Side() : kSides[1]};
    return !lies && entry.index > 0 ? EINVAL : 0;
  }
  entry.stepwise = {Side(), Side(), Side(), Side(), Side(), Side()};
  return 0;
}

int MalformedSystemCalls::EnumInterval(v4l2_frmivalenum& entry, bool lies) {
  entry.type = lies ? m_reader.Byte() % 4U : V4L2_FRMIVAL_TYPE_DISCRETE;
  if (entry.type == V4L2_FRMIVAL_TYPE_DISCRETE) {
    entry.discrete = lies ? Fraction() : kFractions[entry.index % kEnds];
    return !lies && entry.index >= kEnds ? EINVAL : 0;
  }
  entry.stepwise = {Fraction(), Fraction(), Fraction()};
  return 0;
}

void MalformedSystemCalls::DescribeFormat(v4l2_format& format, bool lies) {
  v4l2_pix_format& picture = format.fmt.pix;
  if (lies) {
    // Some of what was asked for stays.
    const std::uint8_t changed = m_reader.Byte();
    picture.width = (changed & 1) != 0 ? Side() : picture.width;
    picture.height = (changed & 2) != 0 ? Side() : picture.height;
    picture.pixelformat = (changed & 4) != 0 ? FourCc() : picture.pixelformat;
    picture.bytesperline = (changed & 8) != 0 ? Side() : picture.width * 2 + m_reader.Byte();
  } else {
    picture.bytesperline = picture.pixelformat == V4L2_PIX_FMT_YUYV ? picture.width * 2 : 0;
  }
  m_format = picture;
  const std::uint64_t image = std::uint64_t{picture.height} *
                              std::max<std::uint64_t>(picture.bytesperline, std::uint64_t{picture.width} * 2);
  m_imageSize = static_cast<std::uint32_t>(std::min<std::uint64_t>(image, kMaxBytes));
}

void MalformedSystemCalls::DescribeRate(v4l2_streamparm& rate, bool lies) {
  rate.parm.capture.capability = lies ? m_reader.Value<std::uint32_t>() : V4L2_CAP_TIMEPERFRAME;
  if (lies) {
    rate.parm.capture.timeperframe = Fraction();
  }
}

int MalformedSystemCalls::RequestBuffers(v4l2_requestbuffers& request, bool lies) {
  m_queue.clear();
  m_byIndex.clear();
  if (lies && request.count > 0) {
    request.count = m_reader.Byte() % (kMaxBuffers + 1);
  }
  return 0;
}

int MalformedSystemCalls::QueryBuffer(v4l2_buffer& buffer, bool lies) {
  buffer.length = lies ? m_reader.Value<std::uint16_t>() : m_imageSize;
  buffer.m.offset = buffer.index;
  return 0;
}

// Filled with what the bytes have, as far as there is room.
int MalformedSystemCalls::Dequeue(v4l2_buffer& buffer, bool lies) {
  buffer.flags = 0;
  if (lies) {
    buffer.index = m_reader.Byte() % (kMaxBuffers + 1);
    buffer.bytesused = m_reader.Value<std::uint32_t>();
    buffer.sequence = m_reader.Value<std::uint32_t>();
    buffer.flags = m_reader.Byte() % 2 == 0 ? 0 : V4L2_BUF_FLAG_ERROR;
  } else if (m_queue.empty()) {
    return EAGAIN;
  } else {
    buffer.index = m_queue.front();
    buffer.sequence = m_sequence++;
    m_queue.erase(m_queue.begin());
  }
  if (buffer.index >= m_byIndex.size()) {
    buffer.bytesused = lies ? buffer.bytesused : 0;
    return 0;
  }
  Mapping& mapping = m_mappings.at(m_byIndex[buffer.index]);
  const std::size_t wanted = m_format.pixelformat == V4L2_PIX_FMT_YUYV ? 8 : m_reader.Value<std::uint16_t>();
  const std::span<const std::uint8_t> bytes = m_reader.Take(std::min(wanted, mapping.size));
  std::copy(bytes.begin(), bytes.end(), mapping.bytes.get());
  if (!lies) {
    const bool isYuyv = m_format.pixelformat == V4L2_PIX_FMT_YUYV;
    buffer.bytesused = static_cast<std::uint32_t>(isYuyv ? mapping.size : bytes.size());
  }
  return 0;
}

void* MalformedSystemCalls::Map(std::size_t size, int descriptor, off_t /*offset*/) {
  const std::lock_guard lock(m_mutex);
  Require(m_open.contains(descriptor), "what is mapped is open");
  const std::uint8_t control = m_reader.Byte();
  if (control != 0 || size == 0 || size > kMaxBytes) {
    errno = control != 0 ? EACCES : size == 0 ? EINVAL : ENOMEM;
    return MAP_FAILED;
  }
  auto bytes = std::make_unique<std::uint8_t[]>(size);
  void* const address = bytes.get();
  m_mappings[address] = {std::move(bytes), size};
  m_byIndex.push_back(address);
  return address;
}

int MalformedSystemCalls::Unmap(void* address, std::size_t size) {
  const std::lock_guard lock(m_mutex);
  const auto mapping = m_mappings.find(address);
  Require(mapping != m_mappings.end() && mapping->second.size == size, "what is unmapped was mapped");
  m_mappings.erase(mapping);
  std::erase(m_byIndex, address);
  return 0;
}

// Never waits for the camera: there is something at once, or the time is up. Without a time, and without
// bytes, there is only the caller's own descriptor to wait for.
int MalformedSystemCalls::Poll(pollfd* entries, nfds_t count, int timeoutMs) {
  Require(count == 2, "a camera and a wake-up are waited for");
  const int woken = poll(entries + 1, 1, 0);
  const std::lock_guard lock(m_mutex);
  entries[0].revents = 0;
  if (woken != 0) {
    return woken;
  }
  if (m_reader.IsEmpty()) {
    return timeoutMs < 0 ? poll(entries + 1, 1, timeoutMs) : 0;
  }
  constexpr std::array<short, 6> kEvents = {POLLIN, POLLERR, POLLIN | POLLERR, POLLHUP, POLLNVAL, 0};
  const std::uint8_t control = m_reader.Byte();
  if (control >= kLies) {
    entries[0].revents = kEvents[control % kEvents.size()];
    return 1;
  }
  if (control > kLies / 2) {
    return 0;
  }
  if (control != 0) {
    return Fail(control % 2 == 0 ? EINTR : ENOMEM);
  }
  entries[0].revents = POLLIN;
  return 1;
}
