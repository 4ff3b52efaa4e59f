// What went wrong, in the tool's terms.
#pragma once

#include <stdexcept>
#include <string>

// The tool's exit codes, by kind of failure. Scripts rely on them; see the man page.
enum class ExitCode : int {
  kOk = 0,
  kUnexpected = 1,   // nothing of the following
  kUsage = 2,        // wrong arguments
  kNoCamera = 3,     // the PC has no built-in camera
  kCannotOpen = 4,   // the camera is there but could not be read or opened
  kCannotWrite = 5,  // the output cannot be written
  kEndedEarly = 6,   // the stream ended before it should have
};

// Ends a command. The text names the cause and the next step, for people, without the tool's name.
class Failure : public std::runtime_error {
 public:
  Failure(ExitCode code, const std::string& text) : std::runtime_error(text), m_code(code) {}

  ExitCode Code() const { return m_code; }

 private:
  ExitCode m_code;
};
