// What the camera library writes to its logger: shown when the user wants it, and kept for a moment, because
// the library's results say that something failed and only its log says what.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include <log4cplus/appender.h>

class LibraryLog {
 public:
  // Attaches to the library's logger. Every line is also written to shown, unless that is null.
  explicit LibraryLog(std::ostream* shown);
  LibraryLog(const LibraryLog&) = delete;
  LibraryLog& operator=(const LibraryLog&) = delete;
  ~LibraryLog();

  // Forgets the lines kept so far: before a call whose failure is to be explained.
  void Forget();
  // The latest few lines, the oldest first, in UTF-8.
  std::vector<std::string> Lines() const;

 private:
  class Appender;
  log4cplus::helpers::SharedObjectPtr<Appender> m_appender;
};

// The line that says which step failed, without the names of sources and functions; empty when none does.
// The library writes on ERROR level throughout, so the level tells nothing.
std::string FailingStep(const std::vector<std::string>& lines);

// The system's error code in a line: "..., error:-2147024726" is 0x800700AA.
std::optional<std::uint32_t> ErrorCodeIn(const std::string& line);

// What an error code means to people.
struct Explanation {
  std::uint32_t code = 0;
  const char* cause = "";
  const char* nextStep = "";
};
// The codes that are known on this system.
std::span<const Explanation> KnownExplanations();
// Nothing for a code that is not known.
std::optional<Explanation> Explain(std::uint32_t errorCode);

// Ends a message about a call that failed: ": the cause; the next step (the library said: ...)".
std::string ReasonText(const std::vector<std::string>& lines, const std::string& otherwise);
