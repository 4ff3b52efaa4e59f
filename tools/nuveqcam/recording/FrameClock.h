// When each picture of a recording is shown.
//
// Packets carry no time stamps, so the times are made from the packets' arrivals: a camera that slows down in
// the dark or leaves frames out then plays at the speed at which it was recorded, which counting frames at
// the nominal rate would not give. But arrivals also tremble with the machine's load, and frames that had
// queued up arrive at once, and neither should be seen in the recording. So the times follow the arrivals
// smoothly: each picture is expected an interval after the one before, and what it is early or late moves
// time and interval a little (an alpha-beta filter).
//
// That suits what is nearly right. A camera that delivers several times the frames that were asked for would
// have the times run seconds ahead before the filter has taken it in, so the first few arrivals say whether
// it does.
#pragma once

#include <cstdint>

#include "recording/PacketQueue.h"

class FrameClock {
 public:
  using Seconds = std::chrono::duration<double>;

  // Starts with the interval of that many frames per second.
  explicit FrameClock(std::uint32_t fps);

  // The time of the next picture, counted from the first; at least a millisecond after the one before.
  Seconds TimeOf(Clock::time_point arrival);

 private:
  void NoteFasterCamera(Seconds elapsed);

  std::uint64_t m_count = 0;
  Clock::time_point m_first;
  Seconds m_latest{0};
  Seconds m_interval;
};
