// The packets of the fake camera: pictures of moving bars, encoded by the product's encoder.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <span>
#include <thread>

#include "support/fakecamera/FakeCameraSettings.h"

namespace fake_camera {

class FakeStream {
 public:
  using Sink = std::function<void(std::span<const std::uint8_t>)>;

  // Starts a thread that passes packets to the sink, at the lower of the requested rate and the size's.
  FakeStream(const FakeSize& size, std::uint32_t requestedFps, std::uint32_t keyFrameInterval, Sink sink);
  FakeStream(const FakeStream&) = delete;
  FakeStream& operator=(const FakeStream&) = delete;
  // No packet follows.
  ~FakeStream();

  // No further packets.
  void Dry() { m_isDry = true; }

 private:
  using Clock = std::chrono::steady_clock;

  void Run();
  Clock::time_point DueTime(std::uint64_t number) const;
  // Returns false if the stream is to end.
  bool WaitUntil(Clock::time_point due);
  void Deliver(std::span<const std::uint8_t> packet, std::uint64_t number) const;

  const FakeSize m_size;
  const std::uint32_t m_requestedFps;
  const std::uint32_t m_keyFrameInterval;
  const Sink m_sink;
  const Clock::time_point m_begin = Clock::now();
  std::atomic<bool> m_isDry = false;
  std::mutex m_mutex;
  std::condition_variable m_stopping;
  bool m_isStopping = false;
  std::thread m_thread;
};

}  // namespace fake_camera
