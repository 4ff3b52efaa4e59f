// Another program that has a camera: a process of its own.
#pragma once

#include <string>

#include "support/FileDescriptor.h"

class OtherProgram {
 public:
  // Opens the node and has buffers made for it, as one that is about to stream.
  explicit OtherProgram(const std::string& node);
  OtherProgram(const OtherProgram&) = delete;
  OtherProgram& operator=(const OtherProgram&) = delete;
  ~OtherProgram() { End(); }

  // What kept it from getting the camera; empty when it has it.
  const std::string& Error() const { return m_error; }
  // Gives the camera back. Harmless twice.
  void End();

 private:
  FileDescriptor m_lifeline;  // it lives as long as this is open
  int m_process = -1;
  std::string m_error;
};
