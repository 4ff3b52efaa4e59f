#include "view/LocalSocket.h"

#include <cerrno>
#include <system_error>

#include <sys/socket.h>

#include "cli/Failure.h"

namespace nuveqcam {

void PrepareListener(std::intptr_t socket) {
  // Ports of earlier connections count as used for a minute otherwise. Listeners still exclude each other.
  const int isOn = 1;
  if (setsockopt(static_cast<int>(socket), SOL_SOCKET, SO_REUSEADDR, &isOn, sizeof(isOn)) != 0) {
    throw Failure(ExitCode::kUnexpected,
                  "cannot prepare the port: " + std::generic_category().message(errno) + "; try again");
  }
}

}  // namespace nuveqcam
