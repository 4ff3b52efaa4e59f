// Log of the camera's events for tests, one line per event. CameraOptions.cpp documents the lines in the help
// text.
#pragma once

#include <fstream>
#include <stdexcept>
#include <string>

namespace uvc {

class EventLog {
 public:
  // Truncates the file; an empty name disables the log. Throws std::runtime_error if the file cannot be
  // opened.
  explicit EventLog(const std::string& file) {
    if (!file.empty()) {
      m_file.open(file, std::ios::trunc);
      if (!m_file) {
        throw std::runtime_error("cannot write " + file);
      }
    }
  }

  void Write(const std::string& line) {
    if (m_file.is_open() && !(m_file << line << std::endl)) {
      throw std::runtime_error("cannot write the log");
    }
  }

 private:
  std::ofstream m_file;
};

}  // namespace uvc
