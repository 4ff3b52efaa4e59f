// Output streams and the progress line.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <string>

namespace nuveqcam {

// The output streams of a command. Results go to out, everything else to err.
struct Console {
  std::ostream& out;
  std::ostream& err;
  bool isErrTerminal = false;
  bool isOutTerminal = false;
};

// Progress of a recording.
struct Progress {
  double seconds = 0;
  std::uint64_t frames = 0;
  std::uint64_t bytes = 0;
};

// "   12.3 s     369 frames   30.0 fps   1536 kbit/s"
std::string ProgressText(const Progress& progress);

// A line on err that is overwritten with each update. Prints nothing if err is not a terminal.
class ProgressLine {
 public:
  explicit ProgressLine(const Console& console) : m_console(console) {}
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;
  ~ProgressLine() { End(); }

  void Show(const Progress& progress) { ShowText(ProgressText(progress)); }
  void ShowText(const std::string& text);
  // Ends the line; further output starts on a new one.
  void End();

 private:
  Console m_console;
  bool m_isShown = false;
  std::size_t m_columns = 0;  // of the previous text
};

}  // namespace nuveqcam
