#include "cli/StopSignals.h"

#include <array>
#include <atomic>
#include <csignal>

namespace nuveqcam {
namespace {

constexpr std::array kStopSignals{SIGINT, SIGTERM, SIGHUP};

// Lock-free, because a signal handler sets it.
std::atomic<bool> isStopRequested{false};
static_assert(std::atomic<bool>::is_always_lock_free);

extern "C" void OnStopRequest(int /*signal*/) { isStopRequested = true; }

}  // namespace

StopSignals::StopSignals() {
  isStopRequested = false;
  for (const int number : kStopSignals) {
    struct sigaction previous = {};
    struct sigaction action = {};
    action.sa_handler = OnStopRequest;
    // SA_RESTART completes a write in progress; SA_RESETHAND lets a second signal end the process.
    action.sa_flags = SA_RESTART | static_cast<int>(SA_RESETHAND);
    sigemptyset(&action.sa_mask);
    sigaction(number, nullptr, &previous);
    if (previous.sa_handler != SIG_IGN) {
      sigaction(number, &action, nullptr);
    }
  }
}

bool StopSignals::HasArrived() const { return isStopRequested; }

}  // namespace nuveqcam
