#include "LogCapture.h"

#include <log4cplus/appender.h>
#include <log4cplus/spi/loggingevent.h>

#include <mutex>

namespace {

constexpr const wchar_t* kLoggerName = L"nuveq.camera";

// Messages are ASCII except for device names, which the tests do not check.
std::string Narrow(const std::wstring& text) {
  std::string narrow;
  for (const wchar_t c : text) {
    narrow += c < 128 ? static_cast<char>(c) : '?';
  }
  return narrow;
}

}  // namespace

class LogCapture::Appender : public log4cplus::Appender {
 public:
  Appender() = default;
  Appender(const Appender&) = delete;
  Appender& operator=(const Appender&) = delete;
  ~Appender() override { destructorImpl(); }
  void close() override { closed = true; }

  std::vector<std::string> Lines() const {
    const std::lock_guard lock(m_mutex);
    return m_lines;
  }
  void Clear() {
    const std::lock_guard lock(m_mutex);
    m_lines.clear();
  }

 protected:
  void append(const log4cplus::spi::InternalLoggingEvent& event) override {
    const std::lock_guard lock(m_mutex);
    m_lines.push_back(Narrow(event.getMessage()));
  }

 private:
  mutable std::mutex m_mutex;
  std::vector<std::string> m_lines;
};

LogCapture::LogCapture() : m_appender(new Appender) {
  log4cplus::Logger::getInstance(kLoggerName).addAppender(log4cplus::SharedAppenderPtr(m_appender.get()));
}

LogCapture::~LogCapture() {
  log4cplus::Logger::getInstance(kLoggerName).removeAppender(log4cplus::SharedAppenderPtr(m_appender.get()));
}

std::vector<std::string> LogCapture::Lines() const { return m_appender->Lines(); }

void LogCapture::Clear() { m_appender->Clear(); }
