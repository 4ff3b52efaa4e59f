#include "v4l2/SequenceTracker.h"

#include <limits>

namespace v4l2 {

namespace {

constexpr std::uint32_t kBits = std::numeric_limits<std::uint32_t>::digits;
// At the first frame, the three frames before it may still arrive late; all earlier ones count as delivered.
constexpr std::uint32_t kSeenAtFirst = ~std::uint32_t{0b1110};

}  // namespace

SequenceTracker::Result SequenceTracker::Take(std::uint32_t number, bool isDamaged) {
  if (!m_latest.has_value()) {
    Begin(number);
    return {};
  }
  if (number > *m_latest) {
    return Advance(number);
  }
  if (isDamaged) {
    return {};
  }
  // Some drivers copy frames on several processors and may finish a later frame first.
  const std::uint32_t behind = *m_latest - number;
  if (behind < kBits && (m_seen >> behind & 1U) == 0) {
    m_seen |= 1U << behind;
    // A late frame was counted as missed when the later one arrived, unless it precedes the first frame.
    return {.missed = number < m_first ? 1U : 0U, .isLate = true};
  }
  // The driver has restarted its numbering, or does not number frames.
  Begin(number);
  return {};
}

void SequenceTracker::Begin(std::uint32_t number) {
  m_first = number;
  m_latest = number;
  m_seen = kSeenAtFirst;
}

SequenceTracker::Result SequenceTracker::Advance(std::uint32_t number) {
  const std::uint32_t step = number - *m_latest;
  m_seen = step < kBits ? m_seen << step | 1U : 1U;
  m_latest = number;
  return {.missed = step - 1};
}

}  // namespace v4l2
