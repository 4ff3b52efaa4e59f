#include "view/LocalSocket.h"

#include <winsock2.h>

#include "cli/Failure.h"
#include "cli/WideText.h"

namespace nuveqcam {

void PrepareListener(std::intptr_t socket) {
  // Without it, another program could listen on the same port with SO_REUSEADDR and receive the connections.
  const BOOL isOn = TRUE;
  if (setsockopt(static_cast<SOCKET>(socket), SOL_SOCKET, SO_EXCLUSIVEADDRUSE,
                 reinterpret_cast<const char*>(&isOn), sizeof(isOn)) != 0) {
    const auto error = static_cast<DWORD>(WSAGetLastError());
    throw Failure(ExitCode::kUnexpected, "cannot prepare the port: " + SystemMessage(error) + "; try again");
  }
}

}  // namespace nuveqcam
