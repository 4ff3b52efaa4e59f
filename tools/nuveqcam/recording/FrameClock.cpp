#include "recording/FrameClock.h"

#include <algorithm>

namespace nuveqcam {
namespace {

// Without overshoot; the times settle within about a third of a second at 30 frames per second.
constexpr double kTimeGain = 1.0 / 8;
constexpr double kIntervalGain = 1.0 / 128;

// A longer gap is a pause of the camera, which the recording keeps.
constexpr FrameClock::Seconds kMinPause{0.5};

// How many arrivals are used to detect a camera that is much faster than requested.
constexpr std::uint64_t kInitialArrivals = 12;

// The minimum of an interval that is measured from the first arrivals, which may be a burst of frames that
// were queued while the camera started.
constexpr FrameClock::Seconds kMinMeasuredInterval{0.02};

// The interval of the highest rate that can be requested.
constexpr FrameClock::Seconds kMinInterval{0.001};

}  // namespace

FrameClock::FrameClock(std::uint32_t fps) : m_interval(1.0 / std::max<std::uint32_t>(fps, 1)) {}

FrameClock::Seconds FrameClock::TimeOf(Clock::time_point arrival) {
  if (m_count++ == 0) {
    m_first = arrival;
    return m_latest;
  }
  const Seconds elapsed = arrival - m_first;
  DetectFasterCamera(elapsed);
  const Seconds late = elapsed - (m_latest + m_interval);
  if (late > kMinPause) {
    m_latest += m_interval + late;
    return m_latest;
  }
  m_latest += std::max(m_interval + late * kTimeGain, kMinInterval);
  m_interval = std::max(m_interval + late * kIntervalGain, kMinInterval);
  return m_latest;
}

void FrameClock::DetectFasterCamera(Seconds elapsed) {
  const auto intervals = m_count - 1;
  const Seconds measured = std::max(elapsed / static_cast<double>(intervals), kMinMeasuredInterval);
  // The filter handles smaller differences.
  if (intervals <= kInitialArrivals && measured < m_interval / 2) {
    m_interval = measured;
  }
}

}  // namespace nuveqcam
