#include "FrameClock.h"

#include <algorithm>

namespace {

// Together they make the times settle without swinging: about a third of a second for 30 frames per second.
constexpr double kTimeGain = 1.0 / 8;
constexpr double kIntervalGain = 1.0 / 128;

// A camera that was silent for longer has paused; the recording shows the pause as it was.
constexpr FrameClock::Seconds kPause{0.5};

// The interval of the highest rate that can be asked for.
constexpr FrameClock::Seconds kShortest{0.001};

}  // namespace

FrameClock::FrameClock(std::uint32_t fps) : m_interval(1.0 / std::max<std::uint32_t>(fps, 1)) {}

FrameClock::Seconds FrameClock::TimeOf(Clock::time_point arrival) {
  if (!m_hasBegun) {
    m_hasBegun = true;
    m_first = arrival;
    return m_latest;
  }
  const Seconds late = Seconds(arrival - m_first) - (m_latest + m_interval);
  if (late > kPause) {
    m_latest += m_interval + late;
    return m_latest;
  }
  m_latest += std::max(m_interval + late * kTimeGain, kShortest);
  m_interval = std::max(m_interval + late * kIntervalGain, kShortest);
  return m_latest;
}
