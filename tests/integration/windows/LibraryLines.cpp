#include "LibraryLines.h"

#include <log4cplus/appender.h>
#include <log4cplus/spi/loggingevent.h>

#include <mutex>

namespace {

constexpr const wchar_t* kLoggerName = L"nuveq.camera";

// The functions of the capture graph, whose messages carry their real lines; all others keep theirs for ever.
bool HasRealLine(const std::string& text) {
  for (const char* function :
       {"::OpenCamera)", "::InitCameraBasicInfo)", "::AddDeviceFilter)", "::AddSampleGrabberFilter)",
        "::QueryFilterPin)", "::SetCameraFormat)", "::ConfigSampleGrabber)"}) {
    if (text.ends_with(function)) {
      return true;
    }
  }
  return false;
}

// What the library logs is ASCII, but for names of devices, which these tests do not look at.
std::string Narrow(const std::wstring& text) {
  std::string narrow;
  for (const wchar_t c : text) {
    narrow += c < 128 ? static_cast<char>(c) : '?';
  }
  return narrow;
}

}  // namespace

class LibraryLines::Appender : public log4cplus::Appender {
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
  void Forget() {
    const std::lock_guard lock(m_mutex);
    m_lines.clear();
  }

 protected:
  void append(const log4cplus::spi::InternalLoggingEvent& event) override {
    const std::string text = Narrow(event.getMessage());
    const int line = HasRealLine(text) ? 0 : event.getLine();
    std::string level = Narrow(log4cplus::getLogLevelManager().toString(event.getLogLevel()));
    const std::lock_guard lock(m_mutex);
    m_lines.push_back(level + " " + Narrow(event.getFile()) + ":" + std::to_string(line) + " " + text);
  }

 private:
  mutable std::mutex m_mutex;
  std::vector<std::string> m_lines;
};

LibraryLines::LibraryLines() : m_appender(new Appender) {
  log4cplus::Logger::getInstance(kLoggerName).addAppender(log4cplus::SharedAppenderPtr(m_appender.get()));
}

LibraryLines::~LibraryLines() {
  log4cplus::Logger::getInstance(kLoggerName).removeAppender(log4cplus::SharedAppenderPtr(m_appender.get()));
}

std::vector<std::string> LibraryLines::Get() const { return m_appender->Lines(); }

void LibraryLines::Forget() { m_appender->Forget(); }
