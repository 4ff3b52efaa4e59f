// Waiting for what other threads and processes do.
#pragma once

#include <chrono>
#include <thread>

#include "support/HostCallbacks.h"

// True once the condition holds; false when it does not in time.
template <typename Condition>
bool WaitFor(Condition condition) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}
