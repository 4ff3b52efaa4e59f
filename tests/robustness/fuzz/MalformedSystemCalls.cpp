#include "MalformedSystemCalls.h"

#include <sys/mman.h>

#include <cerrno>

#include "Require.h"

namespace fuzz {
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
// Larger mappings fail with ENOMEM.
constexpr std::size_t kMaxBytes = 1 << 20;
// Limit of the kernel.
constexpr std::uint32_t kMaxBuffers = 32;
// Control bytes: 0 means success, up to here an error number, from here on a malformed result.
constexpr std::uint8_t kFirstMalformed = 0x40;

constexpr std::uint32_t kEntries = 2;  // of a well-formed enumeration

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
  Require(m_open.erase(descriptor) == 1, "a closed descriptor was open");
  return 0;
}

int MalformedSystemCalls::Ioctl(int descriptor, unsigned long request, void* argument) {
  const std::lock_guard lock(m_mutex);
  Require(m_open.contains(descriptor), "ioctl is called with an open descriptor");
  const std::uint8_t control = m_reader.Byte();
  if (control != 0 && control < kFirstMalformed) {
    return Fail(kErrors[control % kErrors.size()]);
  }
  const int error = HandleIoctl(request, argument, control != 0);
  return error == 0 ? 0 : Fail(error);
}

int MalformedSystemCalls::HandleIoctl(unsigned long request, void* argument, bool isMalformed) {
  switch (request) {
    case VIDIOC_QUERYCAP: {
      auto& capability = *static_cast<v4l2_capability*>(argument);
      constexpr std::uint32_t kGood = V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_STREAMING;
      capability.capabilities = isMalformed ? m_reader.Value<std::uint32_t>() : kGood | V4L2_CAP_DEVICE_CAPS;
      capability.device_caps = isMalformed ? m_reader.Value<std::uint32_t>() : kGood;
      return 0;
    }
    case VIDIOC_ENUM_FMT:
      return EnumFormat(*static_cast<v4l2_fmtdesc*>(argument), isMalformed);
    case VIDIOC_ENUM_FRAMESIZES:
      return EnumSize(*static_cast<v4l2_frmsizeenum*>(argument), isMalformed);
    case VIDIOC_ENUM_FRAMEINTERVALS:
      return EnumInterval(*static_cast<v4l2_frmivalenum*>(argument), isMalformed);
    case VIDIOC_G_FMT:
    case VIDIOC_S_FMT:
      DescribeFormat(*static_cast<v4l2_format*>(argument), isMalformed);
      return 0;
    case VIDIOC_G_PARM:
    case VIDIOC_S_PARM:
      DescribeRate(*static_cast<v4l2_streamparm*>(argument), isMalformed);
      return 0;
    case VIDIOC_REQBUFS:
      return RequestBuffers(*static_cast<v4l2_requestbuffers*>(argument), isMalformed);
    case VIDIOC_QUERYBUF:
      return QueryBuffer(*static_cast<v4l2_buffer*>(argument), isMalformed);
    case VIDIOC_QBUF:
      m_queue.push_back(static_cast<v4l2_buffer*>(argument)->index);
      return 0;
    case VIDIOC_DQBUF:
      return Dequeue(*static_cast<v4l2_buffer*>(argument), isMalformed);
    case VIDIOC_STREAMOFF:
      m_queue.clear();
      return 0;
    case VIDIOC_STREAMON:
      return 0;
    default:
      Require(false, "the ioctl request is known", std::to_string(request));
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

int MalformedSystemCalls::EnumFormat(v4l2_fmtdesc& entry, bool isMalformed) {
  entry.pixelformat = isMalformed ? FourCc() : kFourCcs[entry.index % kEntries];
  return !isMalformed && entry.index >= kEntries ? EINVAL : 0;
}

int MalformedSystemCalls::EnumSize(v4l2_frmsizeenum& entry, bool isMalformed) {
  entry.type = isMalformed ? m_reader.Byte() % 4U : V4L2_FRMSIZE_TYPE_DISCRETE;
  if (entry.type == V4L2_FRMSIZE_TYPE_DISCRETE) {
    entry.discrete = {isMalformed ? Side() : kSides[0], isMalformed ? Side() : kSides[1]};
    return !isMalformed && entry.index > 0 ? EINVAL : 0;
  }
  entry.stepwise = {Side(), Side(), Side(), Side(), Side(), Side()};
  return 0;
}

int MalformedSystemCalls::EnumInterval(v4l2_frmivalenum& entry, bool isMalformed) {
  entry.type = isMalformed ? m_reader.Byte() % 4U : V4L2_FRMIVAL_TYPE_DISCRETE;
  if (entry.type == V4L2_FRMIVAL_TYPE_DISCRETE) {
    entry.discrete = isMalformed ? Fraction() : kFractions[entry.index % kEntries];
    return !isMalformed && entry.index >= kEntries ? EINVAL : 0;
  }
  entry.stepwise = {Fraction(), Fraction(), Fraction()};
  return 0;
}

void MalformedSystemCalls::DescribeFormat(v4l2_format& format, bool isMalformed) {
  v4l2_pix_format& picture = format.fmt.pix;
  if (isMalformed) {
    // Keeps some of the requested values.
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

void MalformedSystemCalls::DescribeRate(v4l2_streamparm& rate, bool isMalformed) {
  rate.parm.capture.capability = isMalformed ? m_reader.Value<std::uint32_t>() : V4L2_CAP_TIMEPERFRAME;
  if (isMalformed) {
    rate.parm.capture.timeperframe = Fraction();
  }
}

int MalformedSystemCalls::RequestBuffers(v4l2_requestbuffers& request, bool isMalformed) {
  m_queue.clear();
  m_byIndex.clear();
  if (isMalformed && request.count > 0) {
    request.count = m_reader.Byte() % (kMaxBuffers + 1);
  }
  return 0;
}

int MalformedSystemCalls::QueryBuffer(v4l2_buffer& buffer, bool isMalformed) {
  buffer.length = isMalformed ? m_reader.Value<std::uint16_t>() : m_imageSize;
  buffer.m.offset = buffer.index;
  return 0;
}

// Fills the buffer from the input.
int MalformedSystemCalls::Dequeue(v4l2_buffer& buffer, bool isMalformed) {
  buffer.flags = 0;
  if (isMalformed) {
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
    buffer.bytesused = isMalformed ? buffer.bytesused : 0;
    return 0;
  }
  Mapping& mapping = m_mappings.at(m_byIndex[buffer.index]);
  const std::size_t wanted = m_format.pixelformat == V4L2_PIX_FMT_YUYV ? 8 : m_reader.Value<std::uint16_t>();
  const std::span<const std::uint8_t> bytes = m_reader.Take(std::min(wanted, mapping.size));
  std::copy(bytes.begin(), bytes.end(), mapping.bytes.get());
  if (!isMalformed) {
    const bool isYuyv = m_format.pixelformat == V4L2_PIX_FMT_YUYV;
    buffer.bytesused = static_cast<std::uint32_t>(isYuyv ? mapping.size : bytes.size());
  }
  return 0;
}

void* MalformedSystemCalls::Map(std::size_t size, int descriptor, off_t /*offset*/) {
  const std::lock_guard lock(m_mutex);
  Require(m_open.contains(descriptor), "mmap is called with an open descriptor");
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
  Require(mapping != m_mappings.end() && mapping->second.size == size, "an unmapped range was mapped");
  m_mappings.erase(mapping);
  std::erase(m_byIndex, address);
  return 0;
}

// Never waits for the camera: the input chooses an event or a timeout. Without a timeout and at the end of
// the input, waits for the caller's event only.
int MalformedSystemCalls::Poll(pollfd* entries, nfds_t count, int timeoutMs) {
  Require(count == 2, "poll is called with a camera and an event");
  const int signalled = poll(entries + 1, 1, 0);
  const std::lock_guard lock(m_mutex);
  entries[0].revents = 0;
  if (signalled != 0) {
    return signalled;
  }
  if (m_reader.IsEmpty()) {
    return timeoutMs < 0 ? poll(entries + 1, 1, timeoutMs) : 0;
  }
  constexpr std::array<short, 6> kEvents = {POLLIN, POLLERR, POLLIN | POLLERR, POLLHUP, POLLNVAL, 0};
  const std::uint8_t control = m_reader.Byte();
  if (control >= kFirstMalformed) {
    entries[0].revents = kEvents[control % kEvents.size()];
    return 1;
  }
  if (control > kFirstMalformed / 2) {
    return 0;
  }
  if (control != 0) {
    return Fail(control % 2 == 0 ? EINTR : ENOMEM);
  }
  entries[0].revents = POLLIN;
  return 1;
}

}  // namespace fuzz
