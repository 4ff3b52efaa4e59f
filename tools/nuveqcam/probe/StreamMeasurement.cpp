#include "probe/StreamMeasurement.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace nuveqcam {
namespace {

constexpr std::size_t kSettlingPackets = 5;
constexpr double kJitterPercentile = 0.99;

// Nearest rank: the smallest value that at least that part of the values does not exceed.
Milliseconds Percentile(std::vector<Milliseconds> values, double part) {
  std::sort(values.begin(), values.end());
  const auto rank = static_cast<std::size_t>(std::ceil(part * static_cast<double>(values.size())));
  return values[std::max<std::size_t>(rank, 1) - 1];
}

Milliseconds Jitter(std::span<const Packet> packets, Milliseconds mean) {
  std::vector<Milliseconds> deviations;
  for (std::size_t i = 1; i < packets.size(); ++i) {
    const Milliseconds interval = packets[i].arrival - packets[i - 1].arrival;
    deviations.emplace_back(std::abs((interval - mean).count()));
  }
  return Percentile(std::move(deviations), kJitterPercentile);
}

}  // namespace

StreamFigures MeasureStream(std::span<const Packet> packets) {
  StreamFigures figures;
  figures.packets = packets.size();
  std::uint64_t bytes = 0;
  for (const Packet& packet : packets) {
    bytes += packet.bytes.size();
    figures.largestPacket = std::max(figures.largestPacket, packet.bytes.size());
  }
  const auto settled = packets.size() >= 2 * kSettlingPackets ? packets.subspan(kSettlingPackets) : packets;
  if (settled.size() < 2) {
    return figures;
  }
  const Milliseconds mean = Milliseconds(settled.back().arrival - settled.front().arrival) /
                            static_cast<double>(settled.size() - 1);
  figures.jitterP99 = Jitter(settled, mean);
  if (mean.count() > 0) {
    figures.fps = 1000 / mean.count();
    // Bits per millisecond are kilobits per second.
    figures.kbits = static_cast<double>(bytes) * 8 / static_cast<double>(packets.size()) / mean.count();
  }
  return figures;
}

std::optional<StartFigures> MeasureStarts(std::span<const Clock::duration> times) {
  if (times.empty()) {
    return std::nullopt;
  }
  std::vector<Milliseconds> sorted(times.begin(), times.end());
  std::sort(sorted.begin(), sorted.end());
  return StartFigures{Percentile(sorted, 1.0 / 2), sorted.back()};
}

}  // namespace nuveqcam
