// Detects missing and late frames by the sequence numbers of a V4L2 driver.
#pragma once

#include <cstdint>
#include <optional>

namespace v4l2 {

class SequenceTracker {
 public:
  struct Result {
    std::uint32_t missed = 0;  // frames that this number shows to be missing or late
    bool isLate = false;       // a later frame has been delivered already
  };

  // Called at the start of each stream.
  void Reset() { m_latest.reset(); }
  // Called for each buffer in the order of dequeuing. A damaged buffer may lack a valid number.
  Result Take(std::uint32_t number, bool isDamaged);

 private:
  void Begin(std::uint32_t number);
  Result Advance(std::uint32_t number);

  std::optional<std::uint32_t> m_latest;
  std::uint32_t m_first = 0;
  std::uint32_t m_seen = 0;  // bit n: frame m_latest - n has been delivered
};

}  // namespace v4l2
