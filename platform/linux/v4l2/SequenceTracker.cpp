#include "v4l2/SequenceTracker.h"

#include <limits>

namespace {

constexpr std::uint32_t kBits = std::numeric_limits<std::uint32_t>::digits;
// Of a stream's first frame and those before it: the three that can still be on their way when it is there.
constexpr std::uint32_t kSeenAtFirst = ~std::uint32_t{0b1110};

}  // namespace

FrameNumbers::Finding FrameNumbers::Take(std::uint32_t number, bool isDamaged) {
  if (!m_latest.has_value()) {
    Begin(number);
    return {};
  }
  if (number > *m_latest) {
    return GoAhead(number);
  }
  if (isDamaged) {
    return {};
  }
  // Some drivers copy frames on several processors, and the later one may be done first.
  const std::uint32_t behind = *m_latest - number;
  if (behind < kBits && (m_seen >> behind & 1U) == 0) {
    m_seen |= 1U << behind;
    // One from behind the first has been counted when the later one came.
    return {.missed = number < m_first ? 1U : 0U, .isLate = true};
  }
  // It counts anew, or not at all.
  Begin(number);
  return {};
}

void FrameNumbers::Begin(std::uint32_t number) {
  m_first = number;
  m_latest = number;
  m_seen = kSeenAtFirst;
}

FrameNumbers::Finding FrameNumbers::GoAhead(std::uint32_t number) {
  const std::uint32_t step = number - *m_latest;
  m_seen = step < kBits ? m_seen << step | 1U : 1U;
  m_latest = number;
  return {.missed = step - 1};
}
