// A camera session of the benchmarks: the library over a scripted PC, whose camera is the benchmark itself.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "TimedEncoder.h"

struct CameraSettings {
  int width = 0;
  int height = 0;
  ColorSpace layout = ColorSpace::kYuy2;  // of the frames that the grabber sees: kYuy2 or kArgb32
  int fps = 30;
  int sliceThreads = 1;
};

// What became of a frame, and when.
struct FrameTimes {
  timed::Clock::time_point entry;     // the graph calls BufferCB
  timed::Clock::time_point returned;  // BufferCB has returned
  timed::EncodeTimes encode;
  timed::Clock::time_point callback;  // the platform's data callback begins
};

// One session at a time. All throw std::runtime_error when something does not work as it should.
class CameraSession {
 public:
  // Queries and opens, for so many frames.
  CameraSession(const CameraSettings& settings, std::size_t frames);
  CameraSession(const CameraSession&) = delete;
  CameraSession& operator=(const CameraSession&) = delete;
  // Closes, where that has not happened.
  ~CameraSession();

  // Hands a frame in as the graph's streaming thread does; waits while the library has no buffer.
  void Deliver(VideoFrame& frame);
  // Waits for the packets of all frames that were delivered, and answers what became of them.
  std::vector<FrameTimes> Finish();
  void Close();

  // How long the calls took.
  timed::Clock::time_point OpenStart() const { return m_openStart; }
  timed::Clock::duration OpenTime() const { return m_openTime; }
  timed::Clock::duration CloseTime() const { return m_closeTime; }

 private:
  std::size_t m_frames;
  std::vector<FrameTimes> m_times;
  timed::Clock::time_point m_openStart;
  timed::Clock::duration m_openTime{};
  timed::Clock::duration m_closeTime{};
  bool m_isOpen = false;
};
