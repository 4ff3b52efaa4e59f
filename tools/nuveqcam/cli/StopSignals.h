// The keys and requests that end a recording.
#pragma once

// From its construction on, requests to end the process are noted instead: Ctrl-C and a terminal that goes
// away; on Linux also a request to terminate, on Windows also Ctrl-Break and the end of the session. A second
// request ends the process, so that nobody has to wait for it: on Linux the same signal again, on Windows
// Ctrl-C or Ctrl-Break, whatever came first. Signals that the process was started to ignore stay ignored.
//
// The handlers are never removed: a request that arrives while the process is ending must not replace the
// exit code of a command that has succeeded. A command constructs it before anything that needs undoing, and
// one object at a time.
class StopSignals {
 public:
  StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;
  ~StopSignals() = default;

  // True once a request has arrived. From any thread.
  bool HasArrived() const;
};
