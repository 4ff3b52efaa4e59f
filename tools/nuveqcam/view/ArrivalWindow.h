// The arrival times of a live stream's latest packets.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <mutex>
#include <vector>

#include "view/LiveStream.h"

namespace nuveqcam {

// Thread-safe.
class ArrivalWindow final : private LiveReceiver {
 public:
  // The stream must outlive the object.
  explicit ArrivalWindow(LiveStream& stream) : m_stream(stream) { m_stream.Attach(*this); }
  ArrivalWindow(const ArrivalWindow&) = delete;
  ArrivalWindow& operator=(const ArrivalWindow&) = delete;
  ~ArrivalWindow() override { m_stream.Detach(*this); }

  // Those of the current session in the last five seconds before its latest packet, the oldest first.
  std::vector<Clock::time_point> Arrivals() const;

 private:
  static constexpr std::chrono::seconds kTime{5};
  // More than five seconds of any usual rate. Fixed, so that a packet needs no memory.
  static constexpr std::size_t kMaxArrivals = 2048;

  void OnPacket(const LivePacketPtr& packet) noexcept override;
  void OnSessionEnd() noexcept override;

  LiveStream& m_stream;
  mutable std::mutex m_mutex;
  // Protected by m_mutex.
  std::array<Clock::time_point, kMaxArrivals> m_arrivals{};  // that of packet N is at N modulo the size
  std::size_t m_count = 0;                                   // packets of the session
};

}  // namespace nuveqcam
