// Waiting for other threads and processes.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace support {

// Timeout of all waits in tests: longer than any successful operation takes, so that a timeout is a failure.
inline constexpr std::chrono::seconds kWaitTimeout{60};

// Polls until the condition is true. False after a timeout.
template <typename Condition>
bool WaitFor(Condition condition) {
  const auto deadline = std::chrono::steady_clock::now() + kWaitTimeout;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::microseconds(100));
  }
  return true;
}

// Blocks threads until it is opened.
class Gate {
 public:
  void Open() {
    const std::lock_guard lock(m_mutex);
    m_isOpen = true;
    m_changed.notify_all();
  }
  // Waits until the gate is open. False after a timeout.
  bool Wait() {
    std::unique_lock lock(m_mutex);
    return m_changed.wait_for(lock, kWaitTimeout, [this] { return m_isOpen; });
  }
  bool IsOpen() {
    const std::lock_guard lock(m_mutex);
    return m_isOpen;
  }

 private:
  std::mutex m_mutex;
  std::condition_variable m_changed;
  bool m_isOpen = false;
};

}  // namespace support

using support::Gate;
using support::kWaitTimeout;
using support::WaitFor;
