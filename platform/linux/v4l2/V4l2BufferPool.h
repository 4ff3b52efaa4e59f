// The frame buffers that a driver shares with the process.
#pragma once

#include <linux/videodev2.h>

#include <vector>

#include "v4l2/V4l2Device.h"

class MappedBuffers {
 public:
  explicit MappedBuffers(const V4l2Device& device) : m_device(device) {}
  MappedBuffers(const MappedBuffers&) = delete;
  MappedBuffers& operator=(const MappedBuffers&) = delete;
  ~MappedBuffers() { Release(); }

  // Asks the driver for buffers, maps and queues them. 0 or an error number; nothing is kept then.
  int Allocate(std::uint32_t count, std::size_t leastSize);
  void Release();

  // Gives a buffer to the driver. 0 or an error number.
  int Queue(std::uint32_t index) const;
  // Takes a filled one; its index is one of those here. 0 or an error number, EAGAIN when there is none.
  int Dequeue(v4l2_buffer& buffer) const;

  std::uint8_t* Data(std::uint32_t index) const { return m_buffers[index].data; }
  std::size_t Size(std::uint32_t index) const { return m_buffers[index].size; }

 private:
  struct Buffer {
    std::uint8_t* data;
    std::size_t size;
  };
  int Request(std::uint32_t& count) const;
  bool MakeRoom(std::uint32_t count);
  int MapAndQueue(std::uint32_t index, std::size_t leastSize);

  const V4l2Device& m_device;
  std::vector<Buffer> m_buffers;
  bool m_isRequested = false;
};
