#include "cli/StopSignals.h"

#include <array>
#include <atomic>
#include <csignal>

namespace {

constexpr std::array kStopSignals{SIGINT, SIGTERM, SIGHUP};

// A signal handler has nothing else to say it with.
std::atomic<bool> stopHasArrived{false};
static_assert(std::atomic<bool>::is_always_lock_free);

extern "C" void NoteStop(int /*signal*/) { stopHasArrived = true; }

}  // namespace

StopSignals::StopSignals() {
  stopHasArrived = false;
  for (const int number : kStopSignals) {
    struct sigaction earlier {};
    struct sigaction action {};
    action.sa_handler = NoteStop;
    // A write in progress is completed; the second signal meets the default action.
    action.sa_flags = SA_RESTART | static_cast<int>(SA_RESETHAND);
    sigemptyset(&action.sa_mask);
    sigaction(number, nullptr, &earlier);
    if (earlier.sa_handler != SIG_IGN) {
      sigaction(number, &action, nullptr);
    }
  }
}

bool StopSignals::HasArrived() const { return stopHasArrived; }
