// Captures the library's log messages.
#pragma once

#include <log4cplus/logger.h>

#include <memory>
#include <string>
#include <vector>

// An appender on the library's logger, from construction to destruction. Thread-safe.
class LogCapture {
 public:
  LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;
  ~LogCapture();

  // The texts of the messages so far.
  std::vector<std::string> Lines() const;
  void Clear();

 private:
  class Appender;
  log4cplus::helpers::SharedObjectPtr<Appender> m_appender;
};
