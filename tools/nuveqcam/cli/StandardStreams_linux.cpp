#include "cli/StandardStreams.h"

#include <array>
#include <csignal>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include "cli/Failure.h"

namespace {

// A stream that the program was started without would lend its number to the next file that is opened, and
// messages would go into the recording. Standard output can still not be written: results are not to vanish.
bool HoldStandardStreams() {
  constexpr std::array kModes{std::pair{STDIN_FILENO, O_RDONLY}, std::pair{STDOUT_FILENO, O_RDONLY},
                              std::pair{STDERR_FILENO, O_WRONLY}};
  for (const auto& [descriptor, mode] : kModes) {
    // The lowest number that is free: those below have been seen to.
    if (fcntl(descriptor, F_GETFD) < 0 && open("/dev/null", mode) != descriptor) {
      return false;
    }
  }
  return true;
}

void Ignore(int signal) {
  struct sigaction action {};
  action.sa_handler = SIG_IGN;
  sigemptyset(&action.sa_mask);
  sigaction(signal, &action, nullptr);
}

}  // namespace

StandardStreams::StandardStreams() {
  if (!HoldStandardStreams()) {
    throw Failure(ExitCode::kUnexpected, "the standard streams are missing and cannot be replaced");
  }
  Ignore(SIGPIPE);
  Ignore(SIGXFSZ);
}

StandardStreams::~StandardStreams() = default;

bool IsStandardOutputTerminal() { return isatty(STDOUT_FILENO) == 1; }
bool IsStandardErrorTerminal() { return isatty(STDERR_FILENO) == 1; }
