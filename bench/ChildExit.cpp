#include "ChildExit.h"

#include <sys/resource.h>
#include <sys/wait.h>

#include <csignal>
#include <cstdlib>

namespace bench {

int ExitLike(int waitStatus) {
  if (!WIFSIGNALED(waitStatus)) {
    return WEXITSTATUS(waitStatus);
  }
  // Suppresses a second core dump.
  const rlimit noCore{0, 0};
  setrlimit(RLIMIT_CORE, &noCore);
  std::signal(WTERMSIG(waitStatus), SIG_DFL);
  std::raise(WTERMSIG(waitStatus));
  std::abort();  // reached only if the signal is blocked
}

}  // namespace bench
