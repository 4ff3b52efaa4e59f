// The keys and requests that end a recording.
#pragma once

// While one of these lives, what asks the process to end is noted instead of ending it: Ctrl-C and a terminal
// that goes away; on Linux also a request to terminate, on Windows also Ctrl-Break and the end of the
// session. Asking again ends it, so that nobody is kept waiting against their will: on Linux with the same
// signal, on Windows with Ctrl-C or Ctrl-Break, whatever came first. What the process was started to ignore
// stays ignored. One at a time.
class StopSignals {
 public:
  StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;
  ~StopSignals();

  // True once one has arrived. From any thread.
  bool HasArrived() const;
};
