// Built into the camera library, not into the platform library.
#include "Thread.h"

#include <pthread.h>
#include <sched.h>
#include <sys/resource.h>

namespace platform {

namespace {

// Lowers the nice value by 4: ahead of CPU-bound programs, behind audio servers.
constexpr int kNiceDecrement = 4;

// The id 0 is the calling thread: on Linux each thread has its own nice value.
void RaisePriority() {
  if (sched_getscheduler(0) != SCHED_OTHER) {
    // The host has chosen a real-time or background policy.
    return;
  }
  // Relative to the host's nice value. A negative value was set by the host and is kept.
  if (const int nice = getpriority(PRIO_PROCESS, 0); nice >= 0) {
    // Fails without the privilege to raise priorities.
    setpriority(PRIO_PROCESS, 0, nice - kNiceDecrement);
  }
}

}  // namespace

void ConfigureEncoderThread() noexcept {
  // Linux limits names to 15 characters.
  pthread_setname_np(pthread_self(), "nuveq-encoder");
  RaisePriority();
}

}  // namespace platform
