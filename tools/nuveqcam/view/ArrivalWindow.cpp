#include "view/ArrivalWindow.h"

#include <algorithm>

namespace nuveqcam {

std::vector<Clock::time_point> ArrivalWindow::Arrivals() const {
  std::vector<Clock::time_point> arrivals;
  const std::lock_guard lock(m_mutex);
  for (std::size_t i = m_count - std::min(m_count, kMaxArrivals); i < m_count; ++i) {
    const Clock::time_point arrival = m_arrivals[i % kMaxArrivals];
    if (arrival >= m_arrivals[(m_count - 1) % kMaxArrivals] - kTime) {
      arrivals.push_back(arrival);
    }
  }
  return arrivals;
}

void ArrivalWindow::OnPacket(const LivePacketPtr& packet) noexcept {
  const std::lock_guard lock(m_mutex);
  m_arrivals[m_count++ % kMaxArrivals] = packet->packet.arrival;
}

void ArrivalWindow::OnSessionEnd() noexcept {
  const std::lock_guard lock(m_mutex);
  m_count = 0;
}

}  // namespace nuveqcam
