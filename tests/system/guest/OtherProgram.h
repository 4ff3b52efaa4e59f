// A child process that holds a camera.
#pragma once

#include <string>

#include "support/FileDescriptor.h"

namespace guest {

class OtherProgram {
 public:
  // Opens the node and requests buffers, like a program that is about to stream.
  explicit OtherProgram(const std::string& node);
  OtherProgram(const OtherProgram&) = delete;
  OtherProgram& operator=(const OtherProgram&) = delete;
  ~OtherProgram() { End(); }

  // The reason why the process does not hold the camera; empty if it does.
  const std::string& Error() const { return m_error; }
  // Ends the process, which releases the camera. May be called twice.
  void End();

 private:
  FileDescriptor m_lifeline;  // the process exits when this is closed
  int m_process = -1;
  std::string m_error;
};

}  // namespace guest
