// The camera library's log. The library's result codes do not tell which step failed, and its lists of sizes
// and rates not which rate a size has; its log does.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include <log4cplus/appender.h>

#include "camera/Capabilities.h"

namespace nuveqcam {

// Keeps the library's most recent log lines and optionally prints all of them.
class LibraryLog {
 public:
  // Attaches to the library's logger. If output is not null, every line is also printed there.
  explicit LibraryLog(std::ostream* output);
  LibraryLog(const LibraryLog&) = delete;
  LibraryLog& operator=(const LibraryLog&) = delete;
  ~LibraryLog();

  // Discards the kept lines. Call it before a library call whose failure is to be explained.
  void Clear();
  // The most recent lines, oldest first, in UTF-8.
  std::vector<std::string> Lines() const;
  // The formats that the library has logged since the last Clear, also those in lines that are not kept.
  std::vector<SizeRate> Formats() const;

 private:
  class Appender;
  log4cplus::helpers::SharedObjectPtr<Appender> m_appender;
};

// The line that reports the failed step, without source and function names; empty if there is none. The log
// level is not used: the library logs nearly everything at ERROR level.
std::string FailedStep(const std::vector<std::string>& lines);

// The system error code in a line: 0x800700AA for "..., error:-2147024726".
std::optional<std::uint32_t> ErrorCodeIn(const std::string& line);

// The size and rate in a line that reports a format of the camera; nullopt for any other line.
std::optional<SizeRate> FormatIn(const std::string& line);

// Human-readable meaning of an error code.
struct Explanation {
  std::uint32_t code = 0;
  const char* cause = "";
  const char* nextStep = "";
};
// All explanations for this system.
std::span<const Explanation> KnownExplanations();
// nullopt for an unknown code.
std::optional<Explanation> Explain(std::uint32_t errorCode);

// The end of a message about a failed call: ": <cause>; <next step> (library log: <line>)" for a known error
// code, else " (library log: <line>); <fallbackAdvice>".
std::string ReasonText(const std::vector<std::string>& lines, const std::string& fallbackAdvice);

}  // namespace nuveqcam
