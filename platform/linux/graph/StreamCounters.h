// The counters behind LatestStreamCounters.
#pragma once

#include <atomic>
#include <cstdint>

struct LiveCounters {
  std::atomic<std::uint64_t> delivered = 0;
  std::atomic<std::uint64_t> tooShort = 0;
  std::atomic<std::uint64_t> damaged = 0;
  std::atomic<std::uint64_t> undecodable = 0;
  std::atomic<std::uint64_t> missed = 0;
  std::atomic<bool> isLost = false;
};

LiveCounters& Counters();
// A new run begins.
void ResetCounters();
