#include "recording/FrameClock.h"

#include <algorithm>

namespace {

// Together they make the times settle without swinging: about a third of a second for 30 frames per second.
constexpr double kTimeGain = 1.0 / 8;
constexpr double kIntervalGain = 1.0 / 128;

// A camera that was silent for longer has paused; the recording shows the pause as it was.
constexpr FrameClock::Seconds kPause{0.5};

// By then it has shown whether a camera is much faster than asked.
constexpr std::uint64_t kFirstArrivals = 12;

// Frames that had queued up while the camera started say nothing about its rate; no interval below is
// believed of them.
constexpr FrameClock::Seconds kShortestBelieved{0.02};

// The interval of the highest rate that can be asked for.
constexpr FrameClock::Seconds kShortest{0.001};

}  // namespace

FrameClock::FrameClock(std::uint32_t fps) : m_interval(1.0 / std::max<std::uint32_t>(fps, 1)) {}

FrameClock::Seconds FrameClock::TimeOf(Clock::time_point arrival) {
  if (m_count++ == 0) {
    m_first = arrival;
    return m_latest;
  }
  const Seconds elapsed = arrival - m_first;
  NoteFasterCamera(elapsed);
  const Seconds late = elapsed - (m_latest + m_interval);
  if (late > kPause) {
    m_latest += m_interval + late;
    return m_latest;
  }
  m_latest += std::max(m_interval + late * kTimeGain, kShortest);
  m_interval = std::max(m_interval + late * kIntervalGain, kShortest);
  return m_latest;
}

void FrameClock::NoteFasterCamera(Seconds elapsed) {
  const auto intervals = m_count - 1;
  const Seconds measured = std::max(elapsed / static_cast<double>(intervals), kShortestBelieved);
  // Less than twice as fast is the filter's.
  if (intervals <= kFirstArrivals && measured < m_interval / 2) {
    m_interval = measured;
  }
}
