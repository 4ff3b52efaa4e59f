// A session of the camera library on the scripted platform; the benchmark acts as the camera.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "TimedEncoder.h"

namespace bench {

struct CameraSettings {
  int width = 0;
  int height = 0;
  ColorSpace layout = ColorSpace::kYuy2;  // of the frames at the sample grabber: kYuy2 or kArgb32
  int fps = 30;
  int sliceThreads = 1;
};

// Times of one frame.
struct FrameTimes {
  Clock::time_point entry;     // the graph calls BufferCB
  Clock::time_point returned;  // BufferCB has returned
  EncodeTimes encode;
  Clock::time_point callback;  // the host's data callback is called
};

// At most one instance exists at a time. All functions throw std::runtime_error on failure.
class CameraSession {
 public:
  // Queries and opens the camera. frames: maximum number of frames.
  CameraSession(const CameraSettings& settings, std::size_t frames);
  CameraSession(const CameraSession&) = delete;
  CameraSession& operator=(const CameraSession&) = delete;
  // Closes the camera if it is open.
  ~CameraSession();

  // Delivers a frame like the streaming thread of the graph. Blocks while the library has no free buffer.
  void Deliver(VideoFrame& frame);
  // Waits for the packets of all delivered frames and returns the times of the frames.
  std::vector<FrameTimes> Finish();
  void Close();

  // Start and duration of the calls.
  Clock::time_point OpenStart() const { return m_openStart; }
  Clock::duration OpenTime() const { return m_openTime; }
  Clock::duration CloseTime() const { return m_closeTime; }

 private:
  std::size_t m_frames;
  std::vector<FrameTimes> m_times;
  Clock::time_point m_openStart;
  Clock::duration m_openTime{};
  Clock::duration m_closeTime{};
  bool m_isOpen = false;
};

}  // namespace bench
