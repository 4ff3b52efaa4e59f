// Completion of a graph's run, and the threads that wait for it.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "com/Results.h"

namespace graph {

// A run without a good frame completes with EC_ERRORABORT after this time.
constexpr std::chrono::seconds kFirstFrameTimeout{5};

// May be called from any thread.
class Completion {
 public:
  // A run starts; the result of the previous run is discarded.
  void Begin();
  // Completes the run with an event code. Only the first code of a run counts.
  void Complete(LONG eventCode);
  // The graph has been stopped: wakes all waiters. A completed run stays completed.
  void End();

  // Waits at most timeoutMs milliseconds, -1 for ever. Sets eventCode only on S_OK.
  //   S_OK                completed
  //   E_ABORT             timed out, or the graph was stopped first
  //   VFW_E_WRONG_STATE   the graph is not running and has not completed
  HRESULT Wait(LONG timeoutMs, LONG& eventCode);

 private:
  enum class State { kIdle, kRunning, kCompleted };

  std::mutex m_mutex;
  std::condition_variable m_changed;
  State m_state = State::kIdle;
  LONG m_eventCode = 0;
  unsigned m_run = 0;
};

}  // namespace graph
