// A video device's buffers as the kernel's videobuf2 keeps them: allocated, mapped, queued, filled, dequeued.
//
// Strict: a buffer's mappings cannot be touched while the driver has the buffer, and misuse is recorded.
#pragma once

#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <linux/videodev2.h>
#include <sys/types.h>

// What a program did that no correct one does. From any thread.
class MisuseList {
 public:
  void Add(const std::string& what);
  std::vector<std::string> All() const;

 private:
  mutable std::mutex m_mutex;
  std::vector<std::string> m_all;
};

// A frame as the driver fills it in.
struct FakeFrame {
  std::vector<std::uint8_t> bytes;
  std::uint32_t flags = 0;                 // V4L2_BUF_FLAG_ERROR
  std::optional<std::uint32_t> bytesUsed;  // what the driver says; nothing: all of bytes
  std::uint32_t lost = 0;                  // frames that never made it into a buffer, before this one
  std::optional<std::uint32_t> number;     // the driver's own, in place of the next one
};

// Not thread-safe: its device's lock is held. Functions that answer an int answer an error number or 0.
class FakeV4l2Buffers {
 public:
  explicit FakeV4l2Buffers(MisuseList& misuse) : m_misuse(misuse) {}
  FakeV4l2Buffers(const FakeV4l2Buffers&) = delete;
  FakeV4l2Buffers& operator=(const FakeV4l2Buffers&) = delete;
  ~FakeV4l2Buffers();

  // Frees what there is, then allocates count buffers of that size for a handle; 0 only frees.
  int Request(int owner, std::uint32_t count, std::size_t size);
  int Query(v4l2_buffer& buffer) const;
  int Queue(int handle, v4l2_buffer& buffer);
  int Dequeue(int handle, v4l2_buffer& buffer);
  int StreamOn(int handle);
  int StreamOff(int handle);
  // Where the mapping is; null and the error number when it is refused.
  void* Map(std::size_t size, off_t offset, int& error);
  // False: not a mapping of this queue.
  bool Unmap(void* address, std::size_t size);
  // A handle is closed: what it owned ends, whatever its state.
  void Release(int owner);

  bool IsOwnedByOther(int handle) const { return !m_buffers.empty() && m_owner != handle; }
  bool IsStreaming() const { return m_isStreaming; }
  bool HasBuffers() const { return !m_buffers.empty(); }
  bool HasRoom() const { return m_isStreaming && !m_queued.empty(); }
  bool HasFrame() const { return !m_done.empty(); }
  bool HasQueued() const { return !m_queued.empty(); }
  // What the device has none of any more: no misuse if it is not given back.
  void Excuse(std::uint32_t index);
  void ExcuseStop() { m_isStopExcused = true; }

  // Into the buffer queued first; there has to be one.
  void Fill(const FakeFrame& frame);

  std::size_t Mappings() const { return m_mappings.size(); }
  bool IsMapped(const std::uint8_t* from, std::size_t size) const;

 private:
  enum class State { kDequeued, kQueued, kDone };
  struct Buffer {
    State state = State::kDequeued;
    bool isDue = false;  // dequeued and to be queued again before the stream ends
    v4l2_buffer info{};
    std::uint8_t* memory = nullptr;  // the driver's own view
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
  int m_memory = -1;  // descriptor of the memory that all buffers lie in, one after another
  std::size_t m_size = 0;
  std::vector<Buffer> m_buffers;
  std::vector<Mapping> m_mappings;
  std::deque<std::uint32_t> m_queued;
  std::deque<std::uint32_t> m_done;
  bool m_isStreaming = false;
  bool m_isStopExcused = false;
  std::uint32_t m_sequence = 0;
};
