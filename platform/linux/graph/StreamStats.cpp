#include "graph/StreamStats.h"

#include <initializer_list>

namespace graph {

LiveStreamStats& CurrentStreamStats() {
  static LiveStreamStats stats;
  return stats;
}

void ResetStreamStats() {
  LiveStreamStats& stats = CurrentStreamStats();
  for (auto* const counter :
       {&stats.delivered, &stats.tooShort, &stats.damaged, &stats.undecodable, &stats.missed}) {
    *counter = 0;
  }
  stats.isDisconnected = false;
}

StreamStats LatestStreamStats() {
  const LiveStreamStats& stats = CurrentStreamStats();
  return {.delivered = stats.delivered,
          .tooShort = stats.tooShort,
          .damaged = stats.damaged,
          .undecodable = stats.undecodable,
          .missed = stats.missed,
          .isDisconnected = stats.isDisconnected};
}

}  // namespace graph
