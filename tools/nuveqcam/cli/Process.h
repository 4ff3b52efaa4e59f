// The process's command line, standard streams and CPU time.
#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace nuveqcam {

// The command line without the program's name, from main's arguments. On Windows in UTF-8.
std::vector<std::string> ProgramArguments(int argc, const char* const* argv);

// Prepares the standard streams while it exists: output is not translated, and a reader that goes away
// ("nuveqcam record -o - | head") or an exceeded file size limit makes the write fail instead of ending the
// process with the camera open. Create one, before anything is opened.
class StandardStreams {
 public:
  // Throws Failure (kUnexpected).
  StandardStreams();
  StandardStreams(const StandardStreams&) = delete;
  StandardStreams& operator=(const StandardStreams&) = delete;
  // NOLINTNEXTLINE(performance-trivially-destructible): not trivial on Windows
  ~StandardStreams();
};

// Windows only: restores the console's output code page, which StandardStreams changes and other programs on
// the console share. For process exits that skip StandardStreams's destructor. Thread-safe and idempotent.
void RestoreCodePage();

// The CPU time that all threads of the process have used, in user and kernel mode.
std::chrono::nanoseconds ProcessCpuTime();

bool IsStandardOutputTerminal();
bool IsStandardErrorTerminal();

}  // namespace nuveqcam
