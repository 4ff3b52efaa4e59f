// The person at the other end: the streams that are written to, and the progress line.
#pragma once

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
