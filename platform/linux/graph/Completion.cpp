#include "graph/Completion.h"

#include <chrono>

namespace graph {

void Completion::Begin() {
  const std::lock_guard lock(m_mutex);
  m_state = State::kRunning;
  ++m_run;
}

void Completion::Complete(LONG eventCode) {
  const std::lock_guard lock(m_mutex);
  if (m_state == State::kRunning) {
    m_state = State::kCompleted;
    m_eventCode = eventCode;
    m_changed.notify_all();
  }
}

void Completion::End() {
  const std::lock_guard lock(m_mutex);
  if (m_state == State::kRunning) {
    m_state = State::kIdle;
    m_changed.notify_all();
  }
}

HRESULT Completion::Wait(LONG timeoutMs, LONG& eventCode) {
  std::unique_lock lock(m_mutex);
  if (m_state == State::kIdle) {
    return VFW_E_WRONG_STATE;
  }
  const unsigned run = m_run;
  const auto isOver = [&] { return m_state != State::kRunning || m_run != run; };
  if (timeoutMs < 0) {
    m_changed.wait(lock, isOver);
  } else {
    m_changed.wait_for(lock, std::chrono::milliseconds(timeoutMs), isOver);
  }
  if (m_state != State::kCompleted || m_run != run) {
    return E_ABORT;
  }
  eventCode = m_eventCode;
  return S_OK;
}

}  // namespace graph
