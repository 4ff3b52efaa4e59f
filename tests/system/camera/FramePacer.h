// Which frame is due when: the ticks of the camera's clock, counted from the start of the stream.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

namespace uvc {

class FramePacer {
 public:
  using Clock = std::chrono::steady_clock;

  // interval in units of 100 ns.
  FramePacer(Clock::time_point start, std::uint32_t interval)
      : m_start(start), m_interval(std::chrono::nanoseconds(std::int64_t{100} * interval)) {}

  struct Due {
    std::optional<std::uint64_t> number;  // of the frame to send
    std::uint64_t firstSkipped = 0;
    std::uint64_t skipped = 0;  // how many, from that one on
  };

  // The tick that has come since the last call. While the camera is busy with a frame its ticks pass by; of
  // several ticks that have come at once all but the last one have.
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
