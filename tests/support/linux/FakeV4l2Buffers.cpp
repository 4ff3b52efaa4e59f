#include "support/linux/FakeV4l2Buffers.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <stdexcept>

#include <sys/mman.h>
#include <unistd.h>

namespace linux_support {

void MisuseList::Add(const std::string& what) {
  const std::lock_guard lock(m_mutex);
  m_all.push_back(what);
}

std::vector<std::string> MisuseList::All() const {
  const std::lock_guard lock(m_mutex);
  return m_all;
}

FakeV4l2Buffers::~FakeV4l2Buffers() { Free(); }

void FakeV4l2Buffers::Free() {
  for (const Buffer& buffer : m_buffers) {
    munmap(buffer.memory, m_size);
  }
  m_buffers.clear();
  m_queued.clear();
  m_done.clear();
  m_isStreaming = false;
  m_mayCloseWhileStreaming = false;
  if (m_memory >= 0) {
    close(m_memory);
    m_memory = -1;
  }
}

int FakeV4l2Buffers::Request(int owner, std::uint32_t count, std::size_t size) {
  if (m_isStreaming || IsOwnedByOther(owner)) {
    return EBUSY;
  }
  if (!m_mappings.empty()) {
    m_misuse.Add("VIDIOC_REQBUFS while buffers are mapped");
    return EBUSY;
  }
  Free();
  if (count == 0) {
    return 0;
  }
  const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  m_size = (std::max(size, std::size_t{1}) + page - 1) / page * page;
  m_owner = owner;
  m_memory = memfd_create("buffers", MFD_CLOEXEC);
  if (m_memory < 0 || ftruncate(m_memory, static_cast<off_t>(m_size * count)) != 0) {
    throw std::runtime_error("no memory for buffers");
  }
  for (std::uint32_t i = 0; i < count; ++i) {
    Buffer buffer;
    const auto offset = static_cast<off_t>(m_size * i);
    buffer.memory = static_cast<std::uint8_t*>(
        mmap(nullptr, m_size, PROT_READ | PROT_WRITE, MAP_SHARED, m_memory, offset));
    buffer.info.index = i;
    buffer.info.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    buffer.info.memory = V4L2_MEMORY_MMAP;
    buffer.info.length = static_cast<std::uint32_t>(m_size);
    buffer.info.m.offset = static_cast<std::uint32_t>(offset);
    m_buffers.push_back(buffer);
  }
  return 0;
}

int FakeV4l2Buffers::Query(v4l2_buffer& buffer) const {
  if (buffer.index >= m_buffers.size()) {
    return EINVAL;
  }
  buffer = m_buffers[buffer.index].info;
  return 0;
}

// An access to a buffer that the driver owns ends the program with SIGSEGV.
void FakeV4l2Buffers::Protect(std::uint32_t index) {
  const bool isAccessible = m_buffers[index].state == State::kDequeued;
  for (const Mapping& mapping : m_mappings) {
    if (mapping.buffer == index) {
      mprotect(mapping.address, mapping.size, isAccessible ? PROT_READ | PROT_WRITE : PROT_NONE);
    }
  }
}

int FakeV4l2Buffers::Queue(int handle, v4l2_buffer& buffer) {
  if (IsOwnedByOther(handle)) {
    return EBUSY;
  }
  if (buffer.index >= m_buffers.size() || buffer.memory != V4L2_MEMORY_MMAP) {
    return EINVAL;
  }
  Buffer& queued = m_buffers[buffer.index];
  if (queued.state != State::kDequeued) {
    m_misuse.Add("buffer queued twice");
    return EINVAL;
  }
  queued.state = State::kQueued;
  queued.mustRequeue = false;
  m_queued.push_back(buffer.index);
  Protect(buffer.index);
  return 0;
}

int FakeV4l2Buffers::Dequeue(int handle, v4l2_buffer& buffer) {
  if (IsOwnedByOther(handle)) {
    return EBUSY;
  }
  if (!m_isStreaming || buffer.memory != V4L2_MEMORY_MMAP) {
    return EINVAL;
  }
  if (m_done.empty()) {
    return EAGAIN;
  }
  Buffer& dequeued = m_buffers[m_done.front()];
  m_done.pop_front();
  dequeued.state = State::kDequeued;
  dequeued.mustRequeue = true;
  Protect(dequeued.info.index);
  buffer = dequeued.info;
  return 0;
}

int FakeV4l2Buffers::StreamOn(int handle) {
  if (IsOwnedByOther(handle)) {
    return EBUSY;
  }
  if (m_buffers.empty()) {
    return EINVAL;
  }
  if (!m_isStreaming) {
    m_sequence = 0;
  }
  m_isStreaming = true;
  return 0;
}

int FakeV4l2Buffers::StreamOff(int handle) {
  if (IsOwnedByOther(handle)) {
    return EBUSY;
  }
  m_isStreaming = false;
  m_queued.clear();
  m_done.clear();
  for (Buffer& buffer : m_buffers) {
    if (buffer.mustRequeue) {
      m_misuse.Add("VIDIOC_STREAMOFF while a buffer is dequeued");
    }
    buffer.mustRequeue = false;
    buffer.state = State::kDequeued;
    Protect(buffer.info.index);
  }
  return 0;
}

void* FakeV4l2Buffers::Map(std::size_t size, off_t offset, int& error) {
  for (const Buffer& buffer : m_buffers) {
    if (static_cast<off_t>(buffer.info.m.offset) != offset) {
      continue;
    }
    if (size > m_size || size == 0) {
      break;
    }
    void* const address = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, m_memory, offset);
    m_mappings.push_back({static_cast<std::uint8_t*>(address), size, buffer.info.index});
    Protect(buffer.info.index);
    return address;
  }
  error = EINVAL;
  return nullptr;
}

bool FakeV4l2Buffers::Unmap(void* address, std::size_t size) {
  const auto mapping = std::find_if(m_mappings.begin(), m_mappings.end(),
                                    [address](const Mapping& known) { return known.address == address; });
  if (mapping == m_mappings.end()) {
    return false;
  }
  if (mapping->size != size) {
    m_misuse.Add("munmap of part of a buffer");
  }
  munmap(mapping->address, mapping->size);
  m_mappings.erase(mapping);
  return true;
}

void FakeV4l2Buffers::Release(int owner) {
  if (m_buffers.empty() || m_owner != owner) {
    return;
  }
  if (m_isStreaming && !m_mayCloseWhileStreaming) {
    m_misuse.Add("close while streaming");
  }
  if (!m_mappings.empty()) {
    m_misuse.Add("close while buffers are mapped");
  }
  Free();
}

void FakeV4l2Buffers::AllowDequeued(std::uint32_t index) {
  if (index < m_buffers.size()) {
    m_buffers[index].mustRequeue = false;
  }
}

void FakeV4l2Buffers::Fill(const FakeFrame& frame) {
  Buffer& buffer = m_buffers[m_queued.front()];
  m_queued.pop_front();
  m_done.push_back(buffer.info.index);
  buffer.state = State::kDone;
  const std::size_t size = std::min(frame.bytes.size(), m_size);
  std::copy_n(frame.bytes.begin(), size, buffer.memory);
  buffer.info.bytesused = frame.bytesUsed.value_or(static_cast<std::uint32_t>(size));
  buffer.info.flags = frame.flags | V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC;
  m_sequence += frame.lost;
  buffer.info.sequence = frame.sequence.value_or(m_sequence);
  m_sequence = buffer.info.sequence + 1;
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  buffer.info.timestamp = {now.tv_sec, now.tv_nsec / 1000};
}

bool FakeV4l2Buffers::IsMapped(const std::uint8_t* from, std::size_t size) const {
  return std::any_of(m_mappings.begin(), m_mappings.end(), [from, size](const Mapping& mapping) {
    return from >= mapping.address && from + size <= mapping.address + mapping.size;
  });
}

}  // namespace linux_support
