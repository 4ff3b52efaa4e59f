// The buffers of a V4L2 device, modelled on videobuf2: allocated, mapped, queued, filled, dequeued.
//
// The mappings of a buffer are inaccessible while the driver owns the buffer. Misuse is recorded.
#pragma once

#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <linux/videodev2.h>
#include <sys/types.h>

namespace linux_support {

// Records incorrect use of the system calls. Thread-safe.
class MisuseList {
 public:
  void Add(const std::string& what);
  std::vector<std::string> All() const;

 private:
  mutable std::mutex m_mutex;
  std::vector<std::string> m_all;
};

// A frame that the driver puts into a buffer.
struct FakeFrame {
  std::vector<std::uint8_t> bytes;
  std::uint32_t flags = 0;                 // V4L2_BUF_FLAG_ERROR
  std::optional<std::uint32_t> bytesUsed;  // bytesused of the buffer; by default the size of bytes
  std::uint32_t lost = 0;                  // sequence numbers to skip before this frame
  std::optional<std::uint32_t> sequence;   // by default the next sequence number
};

// Not thread-safe: the caller holds the device's lock. Functions that return int return an error number or 0.
class FakeV4l2Buffers {
 public:
  explicit FakeV4l2Buffers(MisuseList& misuse) : m_misuse(misuse) {}
  FakeV4l2Buffers(const FakeV4l2Buffers&) = delete;
  FakeV4l2Buffers& operator=(const FakeV4l2Buffers&) = delete;
  ~FakeV4l2Buffers();

  // Frees all buffers, then allocates count buffers of the size for a handle.
  int Request(int owner, std::uint32_t count, std::size_t size);
  int Query(v4l2_buffer& buffer) const;
  int Queue(int handle, v4l2_buffer& buffer);
  int Dequeue(int handle, v4l2_buffer& buffer);
  int StreamOn(int handle);
  int StreamOff(int handle);
  // Returns the address of the mapping; on failure null and the error number.
  void* Map(std::size_t size, off_t offset, int& error);
  // Returns false if the address is not a mapping of these buffers.
  bool Unmap(void* address, std::size_t size);
  // A handle was closed: frees the buffers that it owned in any state.
  void Release(int owner);

  bool IsOwnedByOther(int handle) const { return !m_buffers.empty() && m_owner != handle; }
  bool IsStreaming() const { return m_isStreaming; }
  bool HasBuffers() const { return !m_buffers.empty(); }
  bool HasRoom() const { return m_isStreaming && !m_queued.empty(); }
  bool HasFrame() const { return !m_done.empty(); }
  bool HasQueued() const { return !m_queued.empty(); }
  // After a failed call: it is no misuse if the buffer is not queued again, or streaming not stopped.
  void AllowDequeued(std::uint32_t index);
  void AllowCloseWhileStreaming() { m_mayCloseWhileStreaming = true; }

  // Fills the first queued buffer, which must exist.
  void Fill(const FakeFrame& frame);

  std::size_t Mappings() const { return m_mappings.size(); }
  bool IsMapped(const std::uint8_t* from, std::size_t size) const;

 private:
  enum class State { kDequeued, kQueued, kDone };
  struct Buffer {
    State state = State::kDequeued;
    bool mustRequeue = false;  // before the stream ends
    v4l2_buffer info{};
    std::uint8_t* memory = nullptr;  // the driver's mapping
  };
  struct Mapping {
    std::uint8_t* address = nullptr;
    std::size_t size = 0;
    std::uint32_t buffer = 0;
  };

  void Free();
  void Protect(std::uint32_t index);

  MisuseList& m_misuse;
  int m_owner = -1;
  int m_memory = -1;  // memfd with all buffers, one after another
  std::size_t m_size = 0;
  std::vector<Buffer> m_buffers;
  std::vector<Mapping> m_mappings;
  std::deque<std::uint32_t> m_queued;
  std::deque<std::uint32_t> m_done;
  bool m_isStreaming = false;
  bool m_mayCloseWhileStreaming = false;
  std::uint32_t m_sequence = 0;
};

}  // namespace linux_support
