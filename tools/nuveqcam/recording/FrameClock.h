// Computes the presentation times of a recording.
//
// Packets carry no time stamps, so times are derived from packet arrivals. Counting frames at the nominal
// rate would play a camera that slows down in the dark, or drops frames, at the wrong speed. Raw arrival
// times contain scheduling jitter and bursts of queued frames. An alpha-beta filter smooths them: each
// picture is predicted one interval after the previous one, and the prediction error corrects time and
// interval by a small fraction.
//
// The filter adapts too slowly to a camera that is several times faster than requested; times would run
// seconds ahead. The first arrivals are therefore also used to estimate the initial interval.
#pragma once

#include <cstdint>

#include "recording/PacketQueue.h"

namespace nuveqcam {

class FrameClock {
 public:
  using Seconds = std::chrono::duration<double>;

  // Starts with the interval of a frame rate.
  explicit FrameClock(std::uint32_t fps);

  // The time of the next picture, relative to the first one. Times increase by at least 1 ms.
  Seconds TimeOf(Clock::time_point arrival);
  // The expected time from the latest picture to the next one.
  Seconds Interval() const { return m_interval; }

 private:
  void DetectFasterCamera(Seconds elapsed);

  std::uint64_t m_count = 0;
  Clock::time_point m_first;
  Seconds m_latest{0};
  Seconds m_interval;
};

}  // namespace nuveqcam
