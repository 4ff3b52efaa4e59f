// The keys and requests that end a recording.
#pragma once

// While one of these lives, Ctrl-C, a request to terminate and a terminal that goes away are noted instead of
// ending the process; a second of the same kind ends it, so that nobody is kept waiting against their will.
// What the process was started to ignore stays ignored. One at a time.
class StopSignals {
 public:
  StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;
  ~StopSignals();

  // True once one has arrived. From any thread.
  bool HasArrived() const;
};
