// Whether a graph has completed, and the threads that wait for it.
#pragma once

#include <condition_variable>
#include <mutex>

#include "graph/StreamInterfaces.h"

class Completion {
 public:
  // A run begins; what the one before came to is forgotten.
  void Begin();
  // The run has come to its end, with the first code that is told; later ones change nothing.
  void Complete(LONG eventCode);
  // The graph has been stopped: nobody waits on. What has completed stays completed.
  void End();

  // Waits at most timeoutMs milliseconds, -1 for ever. S_OK and the code once completed; E_ABORT after the
  // time or when the graph is stopped first; VFW_E_WRONG_STATE for a graph that does not run.
  HRESULT Wait(LONG timeoutMs, LONG& eventCode);

 private:
  enum class State { kIdle, kRunning, kCompleted };

  std::mutex m_mutex;
  std::condition_variable m_changed;
  State m_state = State::kIdle;
  LONG m_eventCode = 0;
  unsigned m_run = 0;
};
