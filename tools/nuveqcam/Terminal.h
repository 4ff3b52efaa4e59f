// The person at the other end: the streams that are written to, the progress line, the keys that end a
// recording.
#pragma once

#include <atomic>
#include <cstdint>
#include <iosfwd>
#include <string>

// Where a command writes. Results go to out, everything else to err.
struct Console {
  std::ostream& out;
  std::ostream& err;
  bool isErrTerminal = false;
  bool isOutTerminal = false;
};

bool IsStandardOutputTerminal();
bool IsStandardErrorTerminal();

// While one of these lives, Ctrl-C, a request to terminate and a terminal that goes away are noted instead of
// ending the process; a second of the same kind ends it, so that nobody is kept waiting against their will.
// A signal that the process was started to ignore stays ignored. One at a time.
class StopSignals {
 public:
  StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;
  ~StopSignals();

  // True once one has arrived. From any thread.
  bool HasArrived() const;
};

// A reader that goes away ("nuveqcam record -o - | head"), or a file that exceeds the process's limit, is an
// error of the write from here on, not the end of the process with the camera open.
void MakeWritesFail();

// How far a recording is.
struct Progress {
  double seconds = 0;
  std::uint64_t frames = 0;
  std::uint64_t bytes = 0;
};

// "   12.3 s     369 frames   30.0 fps   1536 kbit/s"
std::string ProgressText(const Progress& progress);

// One line that is written over again and again. Does nothing where there is no terminal.
class ProgressLine {
 public:
  explicit ProgressLine(const Console& console) : m_console(console) {}
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;
  ~ProgressLine() { End(); }

  void Show(const Progress& progress);
  // Leaves the line as it is; what is written next starts a new one.
  void End();

 private:
  Console m_console;
  bool m_isShown = false;
};
