// Polling for states of other threads and processes.
#pragma once

#include <chrono>
#include <thread>

#include "support/HostCallbacks.h"

namespace support {

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

}  // namespace support

using support::WaitFor;
