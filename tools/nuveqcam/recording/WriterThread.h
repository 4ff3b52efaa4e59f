// Takes packets off the queue and writes them, on a thread of its own.
#pragma once

#include <atomic>
#include <cstdint>
#include <exception>
#include <mutex>
#include <optional>
#include <thread>

#include "recording/PacketQueue.h"
#include "recording/PacketWriter.h"

// What has been written.
struct Written {
  std::uint64_t frames = 0;
  std::uint64_t keyFrames = 0;
  std::uint64_t bytes = 0;
  FrameClock::Seconds duration{0};  // the last picture is shown for one frame's time
};

class WriterThread {
 public:
  // Both outlive it. For about that many frames per second.
  WriterThread(PacketQueue& queue, PacketWriter& writer, std::uint32_t fps);
  WriterThread(const WriterThread&) = delete;
  WriterThread& operator=(const WriterThread&) = delete;
  // Without Finish: gives up what is in the queue.
  ~WriterThread();

  // True once writing has failed; the queue takes no more packets then.
  bool HasFailed() const { return m_hasFailed; }
  Written Count() const;

  // Writes what is left in the queue and completes the recording. After the camera has been closed, once.
  // Throws what the writer threw.
  void Finish();

 private:
  void Run();
  void WriteAll();

  PacketQueue& m_queue;
  PacketWriter& m_writer;
  const FrameClock::Seconds m_lastFrame;
  FrameClock m_clock;  // the thread's
  mutable std::mutex m_mutex;
  Written m_count;
  std::exception_ptr m_failure;
  std::atomic<bool> m_hasFailed = false;
  std::thread m_thread;
};
