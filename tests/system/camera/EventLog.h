// What happens to the camera, line by line for whoever tests with it; the program's help lists the lines.
#pragma once

#include <fstream>
#include <stdexcept>
#include <string>

namespace uvc {

class EventLog {
 public:
  // Writes to that file anew; an empty name writes nothing. Throws std::runtime_error when it cannot.
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
