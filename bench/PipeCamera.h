// System calls with a built-in V4L2 camera that delivers the frames arriving on a pipe. The camera library
// uses its own capture code; reading the pipe takes the place of the driver's work. The buffers are in the
// memory of BufferMemory.h.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <vector>

#include "graph/VideoFormat.h"
#include "v4l2/SystemCalls.h"

struct v4l2_buffer;

namespace bench {

class PipeCamera final : public v4l2::SystemCalls {
 public:
  using Clock = std::chrono::steady_clock;

  // tree: the folder with sys and dev. The node's name is video0. frameSizes: bytes of each frame.
  // The descriptor is the pipe's; the end of the pipe disconnects the camera.
  PipeCamera(std::filesystem::path tree, const graph::VideoFormat& format,
             std::vector<std::size_t> frameSizes, int descriptor);

  // When the library took the first frame from the camera. To be read after its packet.
  Clock::time_point FirstFrame() const { return m_firstFrame; }
  std::size_t FrameCount() const { return m_frameSizes.size(); }

  int Open(const char* path, int flags) override;
  int Ioctl(int descriptor, unsigned long request, void* argument) override;
  void* Map(std::size_t size, int descriptor, off_t offset) override;
  std::filesystem::path SysfsRoot() const override { return m_tree / "sys"; }
  std::filesystem::path DevRoot() const override { return m_tree / "dev"; }

 private:
  int Answer(unsigned long request, void* argument);
  int RequestBuffers(std::uint32_t& count);
  int Dequeue(v4l2_buffer& buffer);
  std::size_t BufferSize() const;

  const std::filesystem::path m_tree;
  const graph::VideoFormat m_format;
  const std::vector<std::size_t> m_frameSizes;
  const int m_descriptor;
  std::vector<std::uint8_t*> m_buffers;  // where the library has mapped them
  std::vector<std::uint32_t> m_queued;
  std::size_t m_next = 0;
  Clock::time_point m_firstFrame;
};

}  // namespace bench
