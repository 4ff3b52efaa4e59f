// Computes which frame is due: frame N is due N intervals after the start of the stream.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

namespace uvc {

class FramePacer {
 public:
  using Clock = std::chrono::steady_clock;

  // interval: in units of 100 ns.
  FramePacer(Clock::time_point start, std::uint32_t interval)
      : m_start(start), m_interval(std::chrono::nanoseconds(std::int64_t{100} * interval)) {}

  struct Due {
    std::optional<std::uint64_t> number;  // the frame to send
    std::uint64_t firstSkipped = 0;
    std::uint64_t skipped = 0;  // number of consecutive frames skipped, from firstSkipped on
  };

  // Returns the latest frame that became due since the last call; earlier ones are skipped. All of them are
  // skipped if the camera is still busy sending a frame.
  Due Advance(Clock::time_point now, bool isBusy) {
    Due due;
    if (now < Next()) {
      return due;
    }
    const auto latest = static_cast<std::uint64_t>((now - m_start) / m_interval);
    due.firstSkipped = m_next;
    due.skipped = latest - m_next;
    if (isBusy) {
      ++due.skipped;
    } else {
      due.number = latest;
    }
    m_next = latest + 1;
    return due;
  }

  Clock::time_point TimeOf(std::uint64_t number) const {
    return m_start + static_cast<std::int64_t>(number) * m_interval;
  }
  Clock::time_point Next() const { return TimeOf(m_next); }

 private:
  Clock::time_point m_start;
  std::chrono::nanoseconds m_interval;
  std::uint64_t m_next = 0;
};

}  // namespace uvc
