#include "v4l2/V4l2BufferPool.h"

#include <sys/mman.h>

#include <cerrno>
#include <new>

namespace v4l2 {

namespace {

v4l2_buffer Describe(std::uint32_t index) {
  v4l2_buffer buffer{};
  buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  buffer.memory = V4L2_MEMORY_MMAP;
  buffer.index = index;
  return buffer;
}

}  // namespace

int V4l2BufferPool::Request(std::uint32_t& count) const {
  v4l2_requestbuffers request{};
  request.count = count;
  request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  request.memory = V4L2_MEMORY_MMAP;
  const int error = m_device.Ioctl(VIDIOC_REQBUFS, &request);
  count = request.count;
  return error;
}

int V4l2BufferPool::MapAndQueue(std::uint32_t index, std::size_t minSize) {
  v4l2_buffer buffer = Describe(index);
  if (const int error = m_device.Ioctl(VIDIOC_QUERYBUF, &buffer); error != 0) {
    return error;
  }
  if (buffer.length < minSize) {
    return EIO;
  }
  void* const data = m_device.System().Map(buffer.length, m_device.Descriptor(), buffer.m.offset);
  if (data == MAP_FAILED) {
    return errno;
  }
  m_buffers.push_back({static_cast<std::uint8_t*>(data), buffer.length});
  return Queue(index);
}

// Does not throw: buffers that the driver has allocated would keep the device busy.
bool V4l2BufferPool::Reserve(std::uint32_t count) try {
  m_buffers.reserve(count);
  return true;
} catch (const std::bad_alloc&) {
  return false;
}

int V4l2BufferPool::Allocate(std::uint32_t count, std::size_t minSize) {
  if (const int error = Request(count); error != 0) {
    return error;
  }
  m_isRequested = true;
  int error = count == 0 || !Reserve(count) ? ENOMEM : 0;
  for (std::uint32_t index = 0; error == 0 && index < count; ++index) {
    error = MapAndQueue(index, minSize);
  }
  if (error != 0) {
    Release();
  }
  return error;
}

void V4l2BufferPool::Release() {
  for (const Buffer& buffer : m_buffers) {
    m_device.System().Unmap(buffer.data, buffer.size);
  }
  m_buffers.clear();
  if (m_isRequested) {
    // Fails for a disconnected device, which has no buffers to free.
    std::uint32_t none = 0;
    static_cast<void>(Request(none));
    m_isRequested = false;
  }
}

int V4l2BufferPool::Queue(std::uint32_t index) const {
  v4l2_buffer buffer = Describe(index);
  return m_device.Ioctl(VIDIOC_QBUF, &buffer);
}

int V4l2BufferPool::Dequeue(v4l2_buffer& buffer) const {
  buffer = Describe(0);
  if (const int error = m_device.Ioctl(VIDIOC_DQBUF, &buffer); error != 0) {
    return error;
  }
  return buffer.index < m_buffers.size() ? 0 : EPROTO;
}

}  // namespace v4l2
