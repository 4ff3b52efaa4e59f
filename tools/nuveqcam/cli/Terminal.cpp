#include "cli/Terminal.h"

#include <ostream>

#include "cli/Text.h"

namespace nuveqcam {

std::string ProgressText(const Progress& progress) {
  const double fps = progress.seconds > 0 ? static_cast<double>(progress.frames) / progress.seconds : 0;
  const double kbits =
      progress.seconds > 0 ? static_cast<double>(progress.bytes) * 8 / 1000 / progress.seconds : 0;
  return PadLeft(Decimal(progress.seconds, 1), 7) + " s  " + PadLeft(std::to_string(progress.frames), 7) +
         " frames  " + PadLeft(Decimal(fps, 1), 5) + " fps  " + PadLeft(Decimal(kbits, 0), 6) + " kbit/s";
}

void ProgressLine::ShowText(const std::string& text) {
  if (m_console.isErrTerminal) {
    // Spaces overwrite the rest of a longer text.
    m_console.err << '\r' + PadRight(text, m_columns) << std::flush;
    m_columns = CodePointCount(text);
    m_isShown = true;
  }
}

void ProgressLine::End() {
  if (m_isShown) {
    m_console.err << std::endl;
    m_isShown = false;
  }
}

}  // namespace nuveqcam
