// The frame buffers that a V4L2 driver shares with the process through mmap.
#pragma once

#include <linux/videodev2.h>

#include <vector>

#include "v4l2/V4l2Device.h"

namespace v4l2 {

class V4l2BufferPool {
 public:
  explicit V4l2BufferPool(const V4l2Device& device) : m_device(device) {}
  V4l2BufferPool(const V4l2BufferPool&) = delete;
  V4l2BufferPool& operator=(const V4l2BufferPool&) = delete;
  ~V4l2BufferPool() { Release(); }

  // Requests buffers of at least minSize bytes from the driver, maps and queues them. Returns 0, or an error
  // number with nothing allocated. The pool must be empty.
  int Allocate(std::uint32_t count, std::size_t minSize);
  void Release();

  // Passes a buffer to the driver to be filled. Returns 0 or an error number.
  int Queue(std::uint32_t index) const;
  // Dequeues a filled buffer; its index is valid. Returns 0 or an error number, EAGAIN if no buffer is
  // filled.
  int Dequeue(v4l2_buffer& buffer) const;

  std::uint8_t* Data(std::uint32_t index) const { return m_buffers[index].data; }
  std::size_t Size(std::uint32_t index) const { return m_buffers[index].size; }

 private:
  struct Buffer {
    std::uint8_t* data;
    std::size_t size;
  };
  int Request(std::uint32_t& count) const;
  bool Reserve(std::uint32_t count);
  int MapAndQueue(std::uint32_t index, std::size_t minSize);

  const V4l2Device& m_device;
  std::vector<Buffer> m_buffers;
  bool m_isRequested = false;
};

}  // namespace v4l2
