// Failures of a command, with the program's exit codes.
#pragma once

#include <stdexcept>
#include <string>

namespace nuveqcam {

// The program's exit codes. Scripts rely on them; the man page documents them.
enum class ExitCode : int {
  kOk = 0,
  kUnexpected = 1,   // none of the following
  kUsage = 2,        // invalid arguments
  kNoCamera = 3,     // the PC has no built-in camera
  kCannotOpen = 4,   // the camera is present but cannot be read or opened
  kCannotWrite = 5,  // the output cannot be written
  kEndedEarly = 6,   // the stream or the probe ended before it was complete
  kProbeFault = 7,   // probe has found a fault
};

// Ends a command. The message is human-readable, names the cause and the next step, and does not contain the
// program's name.
class Failure : public std::runtime_error {
 public:
  Failure(ExitCode code, const std::string& message) : std::runtime_error(message), m_code(code) {}

  ExitCode Code() const { return m_code; }

 private:
  ExitCode m_code;
};

}  // namespace nuveqcam
