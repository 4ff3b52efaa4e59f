#include "cli/Process.h"

#include <array>
#include <csignal>
#include <ctime>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include "cli/Failure.h"

namespace nuveqcam {
namespace {

// Opens /dev/null for standard streams that are closed. Otherwise the next opened file would get their
// descriptor, and messages would be written into the recording. A closed standard output stays unwritable, so
// that results do not get lost silently.
bool ReserveStandardDescriptors() {
  constexpr std::array kModes{std::pair{STDIN_FILENO, O_RDONLY}, std::pair{STDOUT_FILENO, O_RDONLY},
                              std::pair{STDERR_FILENO, O_WRONLY}};
  for (const auto& [descriptor, mode] : kModes) {
    // open returns the lowest free number, which is this one.
    if (fcntl(descriptor, F_GETFD) < 0 && open("/dev/null", mode) != descriptor) {
      return false;
    }
  }
  return true;
}

void Ignore(int signal) {
  struct sigaction action = {};
  action.sa_handler = SIG_IGN;
  sigemptyset(&action.sa_mask);
  sigaction(signal, &action, nullptr);
}

}  // namespace

std::vector<std::string> ProgramArguments(int argc, const char* const* argv) {
  return {argv + (argc > 0 ? 1 : 0), argv + argc};
}

StandardStreams::StandardStreams() {
  if (!ReserveStandardDescriptors()) {
    throw Failure(ExitCode::kUnexpected, "the standard streams are missing and cannot be replaced");
  }
  Ignore(SIGPIPE);
  Ignore(SIGXFSZ);
}

StandardStreams::~StandardStreams() = default;

std::chrono::nanoseconds ProcessCpuTime() {
  timespec time{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

bool IsStandardOutputTerminal() { return isatty(STDOUT_FILENO) == 1; }
bool IsStandardErrorTerminal() { return isatty(STDERR_FILENO) == 1; }

}  // namespace nuveqcam
