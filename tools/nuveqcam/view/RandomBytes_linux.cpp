#include "view/RandomBytes.h"

#include <cerrno>
#include <cstddef>

#include <sys/random.h>

#include "cli/Failure.h"

namespace nuveqcam {

void FillWithRandom(std::span<std::uint8_t> bytes) {
  while (!bytes.empty()) {
    const ssize_t count = getrandom(bytes.data(), bytes.size(), 0);
    if (count < 0 && errno != EINTR) {
      throw Failure(ExitCode::kUnexpected, "the system provides no random numbers; update its kernel");
    }
    bytes = bytes.subspan(count < 0 ? 0 : static_cast<std::size_t>(count));
  }
}

}  // namespace nuveqcam
