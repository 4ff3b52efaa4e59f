// Figures of a stream, computed from its packets.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "recording/PacketQueue.h"

namespace nuveqcam {

using Milliseconds = std::chrono::duration<double, std::milli>;

struct StreamFigures {
  std::uint64_t packets = 0;
  std::size_t largestPacket = 0;  // bytes
  // nullopt for fewer than two packets.
  std::optional<double> fps;
  std::optional<double> kbits;            // per second, at that rate
  std::optional<Milliseconds> jitterP99;  // 99th percentile of the intervals' deviations from their mean
};

// The rate and the jitter leave out the first five packets if at least as many follow: these can be frames
// that have waited while the encoder started.
StreamFigures MeasureStream(std::span<const Packet> packets);

// The time from an open request to its first packet.
struct StartFigures {
  Milliseconds median{0};
  Milliseconds worst{0};
};
// nullopt without any time.
std::optional<StartFigures> MeasureStarts(std::span<const Clock::duration> times);

}  // namespace nuveqcam
