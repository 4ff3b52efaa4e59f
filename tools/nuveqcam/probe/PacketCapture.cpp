#include "probe/PacketCapture.h"

#include <algorithm>
#include <new>
#include <utility>

#include "cli/Process.h"

namespace nuveqcam {
namespace {

// How often stop signals are checked.
constexpr std::chrono::milliseconds kStopCheckInterval{20};
// Does not fill up: packets are taken out at once.
constexpr std::size_t kCaptureQueueBytes = std::size_t{16} << 20U;
// After the first packet. Longer than five frame intervals of the slowest usual rate.
constexpr std::chrono::milliseconds kStallTimeout{3000};

class CaptureRun {
 public:
  CaptureRun(const ProbeSetup& setup, const CaptureGoal& goal) : m_setup(setup), m_goal(goal) {}

  CapturedStream Run(const CameraRequest& request) {
    const auto requested = Clock::now();
    {
      const OpenCamera open(m_setup.camera, request, m_queue);
      m_opened = Clock::now();
      m_stream.end = Receive();
      MeasureCpu();
      m_queue.SetUnbounded();
      m_stream.closeResult = m_setup.camera.Close();
    }
    if (!m_stream.packets.empty()) {
      m_stream.toFirst = m_stream.packets.front().arrival - requested;
    }
    m_stream.counters = LatestCaptureCounters();
    return std::move(m_stream);
  }

 private:
  CaptureEnd Receive() {
    Packet packet;
    while (!m_setup.signals.HasArrived()) {
      if (m_queue.HasLoss()) {
        throw std::bad_alloc();
      }
      if (m_queue.Pop(packet, kStopCheckInterval) == PopResult::kPacket) {
        m_counted += packet.arrival >= m_countedFrom ? 1U : 0U;
        m_stream.packets.push_back(std::move(packet));
        if (m_stream.packets.size() == 1) {
          NoteFirstPacket();
        }
        if (IsGoalReached()) {
          return CaptureEnd::kComplete;
        }
        continue;
      }
      switch (End()) {
        case StreamEnd::kDisconnected:
          return CaptureEnd::kDisconnected;
        case StreamEnd::kNoPackets:
          return CaptureEnd::kNoPackets;
        case StreamEnd::kNone:
        case StreamEnd::kComplete:
          break;
      }
    }
    return CaptureEnd::kInterrupted;
  }

  StreamEnd End() const {
    const auto now = Clock::now();
    Timeouts timeouts = m_setup.timeouts;
    if (!m_stream.packets.empty()) {
      timeouts.packet = std::min(timeouts.packet, kStallTimeout);
    }
    return DetermineStreamEnd(
        {.idle = std::min(now - m_opened, m_queue.IdleTime(now)), .isDisconnected = IsCameraDisconnected()},
        {}, timeouts);
  }

  bool IsGoalReached() const {
    const std::vector<Packet>& packets = m_stream.packets;
    return m_counted >= m_goal.packets && packets.back().arrival - packets.front().arrival >= m_goal.time;
  }

  void NoteFirstPacket() {
    if (m_goal.afterFirstPacket) {
      m_goal.afterFirstPacket();
      // Packets may have arrived in the meantime.
      m_counted = 0;
      m_countedFrom = Clock::now();
    }
    m_cpuAtFirst = ProcessCpuTime();
  }

  void MeasureCpu() {
    if (m_stream.packets.size() >= 2) {
      m_stream.cpuPerFrame =
          Milliseconds(ProcessCpuTime() - m_cpuAtFirst) / static_cast<double>(m_stream.packets.size() - 1);
    }
  }

  const ProbeSetup& m_setup;
  const CaptureGoal& m_goal;
  PacketQueue m_queue{kCaptureQueueBytes};
  Clock::time_point m_opened;
  Clock::time_point m_countedFrom;
  std::uint64_t m_counted = 0;  // packets since then
  std::chrono::nanoseconds m_cpuAtFirst{0};
  CapturedStream m_stream;
};

}  // namespace

CapturedStream CapturePackets(const ProbeSetup& setup, const CameraRequest& request,
                              const CaptureGoal& goal) {
  return CaptureRun(setup, goal).Run(request);
}

std::string CaptureEndText(CaptureEnd end, std::uint64_t packets) {
  const std::string after = " after " + std::to_string(packets) + (packets == 1 ? " packet" : " packets");
  if (end == CaptureEnd::kDisconnected) {
    return "is disconnected" + after;
  }
  if (end == CaptureEnd::kNoPackets) {
    return packets == 0 ? "delivers no packets" : "stops" + after;
  }
  return {};
}

}  // namespace nuveqcam
