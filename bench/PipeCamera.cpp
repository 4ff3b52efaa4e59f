#include "PipeCamera.h"

#include <fcntl.h>
#include <linux/videodev2.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "BufferMemory.h"

namespace bench {
namespace {

constexpr v4l2_fract kInterval{1, 30};

}  // namespace

PipeCamera::PipeCamera(std::filesystem::path tree, const graph::VideoFormat& format,
                       std::vector<std::size_t> frameSizes, int descriptor)
    : m_tree(std::move(tree)),
      m_format(format),
      m_frameSizes(std::move(frameSizes)),
      m_descriptor(descriptor) {}

// The pipe itself, so that the library's poll waits for the next frame.
int PipeCamera::Open(const char* path, int /*flags*/) {
  if (std::filesystem::path(path) != DevRoot() / "video0") {
    errno = ENOENT;
    return -1;
  }
  // NOLINTNEXTLINE(cppcoreguidelines-pro-type-vararg, hicpp-vararg): the signature of fcntl
  return fcntl(m_descriptor, F_DUPFD_CLOEXEC, 0);
}

int PipeCamera::Ioctl(int /*descriptor*/, unsigned long request, void* argument) {
  errno = Answer(request, argument);
  return errno == 0 ? 0 : -1;
}

void* PipeCamera::Map(std::size_t size, int /*descriptor*/, off_t offset) {
  // Populated, as a driver maps its buffers.
  void* const address =
      mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_POPULATE, kBufferMemory, offset);
  if (address != MAP_FAILED) {
    m_buffers.at(static_cast<std::size_t>(offset) / BufferSize()) = static_cast<std::uint8_t*>(address);
  }
  return address;
}

std::size_t PipeCamera::BufferSize() const {
  return BufferBytes(*std::max_element(m_frameSizes.begin(), m_frameSizes.end()));
}

// Returns an error number or 0.
int PipeCamera::Answer(unsigned long request, void* argument) {
  switch (request) {
    case VIDIOC_QUERYCAP: {
      auto& capability = *static_cast<v4l2_capability*>(argument);
      capability.capabilities = V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_STREAMING | V4L2_CAP_DEVICE_CAPS;
      capability.device_caps = V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_STREAMING;
      return 0;
    }
    case VIDIOC_ENUM_FMT: {
      auto& format = *static_cast<v4l2_fmtdesc*>(argument);
      format.pixelformat = m_format.fourCc;
      return format.index == 0 ? 0 : EINVAL;
    }
    case VIDIOC_ENUM_FRAMESIZES: {
      auto& size = *static_cast<v4l2_frmsizeenum*>(argument);
      size.type = V4L2_FRMSIZE_TYPE_DISCRETE;
      size.discrete = {m_format.width, m_format.height};
      return size.index == 0 ? 0 : EINVAL;
    }
    case VIDIOC_ENUM_FRAMEINTERVALS: {
      auto& interval = *static_cast<v4l2_frmivalenum*>(argument);
      interval.type = V4L2_FRMIVAL_TYPE_DISCRETE;
      interval.discrete = kInterval;
      return interval.index == 0 ? 0 : EINVAL;
    }
    case VIDIOC_S_FMT: {
      v4l2_pix_format& format = static_cast<v4l2_format*>(argument)->fmt.pix;
      format.width = m_format.width;
      format.height = m_format.height;
      format.pixelformat = m_format.fourCc;
      format.bytesperline = m_format.fourCc == graph::kYuyv ? 2 * m_format.width : 0;
      format.sizeimage = static_cast<std::uint32_t>(BufferSize());
      return 0;
    }
    case VIDIOC_G_PARM:
    case VIDIOC_S_PARM: {
      v4l2_captureparm& rate = static_cast<v4l2_streamparm*>(argument)->parm.capture;
      rate.capability = V4L2_CAP_TIMEPERFRAME;
      rate.timeperframe = kInterval;
      return 0;
    }
    case VIDIOC_REQBUFS:
      return RequestBuffers(static_cast<v4l2_requestbuffers*>(argument)->count);
    case VIDIOC_QUERYBUF: {
      auto& buffer = *static_cast<v4l2_buffer*>(argument);
      buffer.length = static_cast<std::uint32_t>(BufferSize());
      buffer.m.offset = static_cast<std::uint32_t>(buffer.index * BufferSize());
      return buffer.index < m_buffers.size() ? 0 : EINVAL;
    }
    case VIDIOC_QBUF:
      m_queued.push_back(static_cast<v4l2_buffer*>(argument)->index);
      return 0;
    case VIDIOC_DQBUF:
      return Dequeue(*static_cast<v4l2_buffer*>(argument));
    case VIDIOC_STREAMON:
    case VIDIOC_STREAMOFF:
      return 0;
    default:
      return ENOTTY;
  }
}

int PipeCamera::RequestBuffers(std::uint32_t& count) {
  struct stat memory {};
  if (fstat(kBufferMemory, &memory) != 0) {
    return ENOMEM;
  }
  count =
      std::min(count, static_cast<std::uint32_t>(static_cast<std::size_t>(memory.st_size) / BufferSize()));
  m_queued.clear();
  m_buffers.assign(count, nullptr);
  return 0;
}

// Reads one whole frame, after poll has reported its beginning. At the end of the pipe the device is gone.
int PipeCamera::Dequeue(v4l2_buffer& buffer) {
  if (m_next == m_frameSizes.size() || m_queued.empty()) {
    return m_queued.empty() ? EAGAIN : ENODEV;
  }
  const std::size_t size = m_frameSizes[m_next];
  std::uint8_t* const target = m_buffers.at(m_queued.front());
  for (std::size_t done = 0; done < size;) {
    const ssize_t count = read(m_descriptor, target + done, size - done);
    if (count <= 0) {
      return ENODEV;
    }
    done += static_cast<std::size_t>(count);
  }
  if (m_next == 0) {
    m_firstFrame = Clock::now();
  }
  buffer.index = m_queued.front();
  buffer.bytesused = static_cast<std::uint32_t>(size);
  buffer.sequence = static_cast<std::uint32_t>(m_next++);
  m_queued.erase(m_queued.begin());
  return 0;
}

}  // namespace bench
