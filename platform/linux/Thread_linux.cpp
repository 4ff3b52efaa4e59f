// The encoder thread on Linux. Built into the camera library, whose thread it is; the capture thread is the
// platform library's.
#include "Thread.h"

#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>

namespace {

// Enough to be woken at once beside programs that compute, and less than what plays sound takes.
constexpr int kNiceSteps = 4;

// The calling thread, which 0 is: a nice value belongs to a thread here, not to the process.
void Raise() {
  if (sched_getscheduler(0) != SCHED_OTHER) {
    // Real time or background: the host has chosen.
    return;
  }
  // Counted from where the host is: one that steps back behind others takes its encoder along.
  if (const int nice = getpriority(PRIO_PROCESS, 0); nice >= 0) {
    // Needs a right that ordinary users lack, and is refused without.
    setpriority(PRIO_PROCESS, 0, nice - kNiceSteps);
  }
}

}  // namespace

void PrepareEncoderThread() noexcept {
  // At most 15 characters.
  pthread_setname_np(pthread_self(), "nuveq-encoder");
  Raise();
}
