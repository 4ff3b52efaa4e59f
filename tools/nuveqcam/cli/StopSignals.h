// Requests to stop a recording.
#pragma once

namespace nuveqcam {

// Turns requests to end the process into a flag: Ctrl-C and a terminal that is closed; on Linux also SIGTERM,
// on Windows also Ctrl-Break and the end of the session. A second request ends the process: on Linux the same
// signal again, on Windows Ctrl-C or Ctrl-Break after any first request. Signals that are ignored when the
// process starts stay ignored.
//
// The handlers are never removed: a request that arrives during process exit must not replace the exit code
// of a successful command. A command creates the object before anything that needs cleanup. Only one object
// may exist at a time.
class StopSignals {
 public:
  StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;
  ~StopSignals() = default;

  // True once a request has arrived. Thread-safe.
  bool HasArrived() const;
};

}  // namespace nuveqcam
