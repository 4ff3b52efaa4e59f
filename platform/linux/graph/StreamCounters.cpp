#include "graph/StreamCounters.h"

#include "graph/StreamStats.h"

LiveCounters& Counters() {
  static LiveCounters counters;
  return counters;
}

void ResetCounters() {
  LiveCounters& counters = Counters();
  for (auto* const counter : {&counters.delivered, &counters.tooShort, &counters.damaged,
                              &counters.undecodable, &counters.missed}) {
    *counter = 0;
  }
  counters.isLost = false;
}

StreamCounters LatestStreamCounters() {
  const LiveCounters& counters = Counters();
  return {.delivered = counters.delivered,
          .tooShort = counters.tooShort,
          .damaged = counters.damaged,
          .undecodable = counters.undecodable,
          .missed = counters.missed,
          .isLost = counters.isLost};
}
