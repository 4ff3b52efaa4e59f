#include "Terminal.h"

#include <array>
#include <csignal>
#include <ostream>

#include <unistd.h>

#include "Text.h"

namespace {

constexpr std::array kStopSignals{SIGINT, SIGTERM, SIGHUP};

// A signal handler has nothing else to say it with.
std::atomic<bool> stopHasArrived{false};
static_assert(std::atomic<bool>::is_always_lock_free);

std::array<struct sigaction, kStopSignals.size()> earlierActions{};

extern "C" void NoteStop(int /*signal*/) { stopHasArrived = true; }

}  // namespace

bool IsStandardOutputTerminal() { return isatty(STDOUT_FILENO) == 1; }
bool IsStandardErrorTerminal() { return isatty(STDERR_FILENO) == 1; }

StopSignals::StopSignals() {
  stopHasArrived = false;
  for (std::size_t i = 0; i < kStopSignals.size(); ++i) {
    struct sigaction action {};
    action.sa_handler = NoteStop;
    // A write in progress is completed; the second signal meets the default action.
    action.sa_flags = SA_RESTART | static_cast<int>(SA_RESETHAND);
    sigemptyset(&action.sa_mask);
    sigaction(kStopSignals[i], nullptr, &earlierActions[i]);
    if (earlierActions[i].sa_handler != SIG_IGN) {
      sigaction(kStopSignals[i], &action, nullptr);
    }
  }
}

StopSignals::~StopSignals() {
  for (std::size_t i = 0; i < kStopSignals.size(); ++i) {
    sigaction(kStopSignals[i], &earlierActions[i], nullptr);
  }
}

bool StopSignals::HasArrived() const { return stopHasArrived; }

void MakeWritesFail() {
  struct sigaction action {};
  action.sa_handler = SIG_IGN;
  sigemptyset(&action.sa_mask);
  sigaction(SIGPIPE, &action, nullptr);
  sigaction(SIGXFSZ, &action, nullptr);
}

std::string ProgressText(const Progress& progress) {
  const double fps = progress.seconds > 0 ? static_cast<double>(progress.frames) / progress.seconds : 0;
  const double kbits =
      progress.seconds > 0 ? static_cast<double>(progress.bytes) * 8 / 1000 / progress.seconds : 0;
  return PadLeft(Decimal(progress.seconds, 1), 7) + " s  " + PadLeft(std::to_string(progress.frames), 7) +
         " frames  " + PadLeft(Decimal(fps, 1), 5) + " fps  " + PadLeft(Decimal(kbits, 0), 6) + " kbit/s";
}

void ProgressLine::Show(const Progress& progress) {
  if (m_console.isErrTerminal) {
    // The text never gets shorter, so that nothing of an earlier one is left over.
    m_console.err << '\r' + ProgressText(progress) << std::flush;
    m_isShown = true;
  }
}

void ProgressLine::End() {
  if (m_isShown) {
    m_console.err << std::endl;
    m_isShown = false;
  }
}
