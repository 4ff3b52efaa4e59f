// A thread that writes the packets of a queue.
#pragma once

#include <atomic>
#include <cstdint>
#include <exception>
#include <mutex>
#include <optional>
#include <thread>

#include "recording/PacketQueue.h"
#include "recording/PacketWriter.h"

namespace nuveqcam {

// What has been written.
struct WriterStats {
  std::uint64_t frames = 0;
  std::uint64_t keyFrames = 0;
  std::uint64_t bytes = 0;
  FrameClock::Seconds duration{0};  // including one nominal frame interval for the last picture
};

class WriterThread {
 public:
  // The queue and the writer must outlive the object. fps is the nominal frame rate.
  WriterThread(PacketQueue& queue, PacketWriter& writer, std::uint32_t fps);
  WriterThread(const WriterThread&) = delete;
  WriterThread& operator=(const WriterThread&) = delete;
  // Abandons the queue if Finish has not been called.
  ~WriterThread();

  // True once a write has failed; the queue is abandoned then.
  bool HasFailed() const { return m_hasFailed; }
  // The exception of a failed write; null if there is none.
  std::exception_ptr WriteFailure() const;
  WriterStats Stats() const;

  // Writes the remaining packets and completes the recording. Call it once, after the camera is closed.
  // Rethrows the writer's exception.
  void Finish();

 private:
  void Run();
  void WriteAll();

  PacketQueue& m_queue;
  PacketWriter& m_writer;
  const FrameClock::Seconds m_lastFrame;
  FrameClock m_clock;  // used by the thread only
  mutable std::mutex m_mutex;
  WriterStats m_stats;
  std::exception_ptr m_failure;
  std::atomic<bool> m_hasFailed = false;
  std::thread m_thread;
};

}  // namespace nuveqcam
