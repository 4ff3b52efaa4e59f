#include "camera/LibraryLog.h"

#include <charconv>
#include <deque>
#include <mutex>
#include <ostream>
#include <string_view>
#include <utility>

#include <log4cplus/layout.h>
#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

#include "cli/Text.h"

namespace nuveqcam {
namespace {

constexpr const wchar_t* kLoggerName = L"nuveq.camera";
constexpr std::size_t kMaxLines = 24;
constexpr std::size_t kMaxFormats = 4096;

bool Contains(const std::string& text, const char* part) { return text.find(part) != std::string::npos; }

// The number after a mark and optional spaces.
template <typename Number>
std::optional<Number> NumberAfter(const std::string& line, std::string_view mark) {
  const std::size_t found = line.find(mark);
  const std::size_t digits =
      found == std::string::npos ? found : line.find_first_not_of(' ', found + mark.size());
  if (digits == std::string::npos) {
    return std::nullopt;
  }
  Number number{};
  const auto [end, error] = std::from_chars(line.data() + digits, line.data() + line.size(), number);
  return error == std::errc{} ? std::optional(number) : std::nullopt;
}

// "[CameraOperator]AddFilter fail, error: -1(CameraOperator::AddDeviceFilter)"
std::string WithoutSource(std::string line) {
  const std::size_t function = line.rfind('(');
  if (function != std::string::npos && line.ends_with(')')) {
    line.erase(function);
  }
  const std::size_t tagEnd = line.find(']');
  if (tagEnd != std::string::npos && line.starts_with('[')) {
    line.erase(0, tagEnd + 1);
  }
  return line;
}

}  // namespace

// log4cplus's console appender is not usable here: it depends on the locale and writes wide characters, after
// which the tool cannot write narrow text to the same stream.
class LibraryLog::Appender : public log4cplus::Appender {
 public:
  explicit Appender(std::ostream* output) : m_output(output) {
    setLayout(std::make_unique<log4cplus::PatternLayout>(L"%D{%H:%M:%S.%q} %-5p %m%n"));
  }
  Appender(const Appender&) = delete;
  Appender& operator=(const Appender&) = delete;
  ~Appender() override { destructorImpl(); }

  void close() override { closed = true; }

  void Clear() {
    const std::lock_guard lock(m_mutex);
    m_lines.clear();
    m_formats.clear();
  }
  std::vector<std::string> Lines() const {
    const std::lock_guard lock(m_mutex);
    return {m_lines.begin(), m_lines.end()};
  }
  std::vector<SizeRate> Formats() const {
    const std::lock_guard lock(m_mutex);
    return m_formats;
  }

 protected:
  void append(const log4cplus::spi::InternalLoggingEvent& event) override {
    if (m_output != nullptr) {
      std::string line = ToUtf8(formatEvent(event));
      line.resize(std::min(line.size(), line.find('\n')));
      *m_output << SanitizeForTerminal(line) << "\n" << std::flush;
    }
    const std::lock_guard lock(m_mutex);
    m_lines.push_back(ToUtf8(event.getMessage()));
    if (const auto format = FormatIn(m_lines.back()); format && m_formats.size() < kMaxFormats) {
      m_formats.push_back(*format);
    }
    if (m_lines.size() > kMaxLines) {
      m_lines.pop_front();
    }
  }

 private:
  std::ostream* m_output;
  mutable std::mutex m_mutex;
  std::deque<std::string> m_lines;
  std::vector<SizeRate> m_formats;
};

LibraryLog::LibraryLog(std::ostream* output) : m_appender(new Appender(output)) {
  log4cplus::Logger::getInstance(kLoggerName).addAppender(log4cplus::SharedAppenderPtr(m_appender.get()));
}

LibraryLog::~LibraryLog() {
  log4cplus::Logger::getInstance(kLoggerName).removeAppender(log4cplus::SharedAppenderPtr(m_appender.get()));
}

void LibraryLog::Clear() { m_appender->Clear(); }

std::vector<std::string> LibraryLog::Lines() const { return m_appender->Lines(); }

std::vector<SizeRate> LibraryLog::Formats() const { return m_appender->Formats(); }

std::string FailedStep(const std::vector<std::string>& lines) {
  // The innermost step logs first, its callers after it. Only the innermost line has an error code.
  std::string step;
  for (const std::string& line : lines) {
    if (ErrorCodeIn(line)) {
      return WithoutSource(line);
    }
    if (step.empty() && Contains(line, "fail")) {
      step = WithoutSource(line);
    }
  }
  return step;
}

std::optional<std::uint32_t> ErrorCodeIn(const std::string& line) {
  const std::optional<std::int32_t> code = NumberAfter<std::int32_t>(line, "error:");
  return code ? std::optional(static_cast<std::uint32_t>(*code)) : std::nullopt;
}

// "[CameraOperator]ParseMediaType success, width: 640, height:480,fps:30,subType:844715353(...)"
std::optional<SizeRate> FormatIn(const std::string& line) {
  if (!Contains(line, "ParseMediaType success")) {
    return std::nullopt;
  }
  const auto width = NumberAfter<std::int32_t>(line, "width:");
  const auto height = NumberAfter<std::int32_t>(line, "height:");
  const auto fps = NumberAfter<std::uint32_t>(line, "fps:");
  if (!width || !height || !fps) {
    return std::nullopt;
  }
  return SizeRate{ToSize(*width, *height), *fps};
}

std::optional<Explanation> Explain(std::uint32_t errorCode) {
  for (const Explanation& known : KnownExplanations()) {
    if (known.code == errorCode) {
      return known;
    }
  }
  return std::nullopt;
}

std::string ReasonText(const std::vector<std::string>& lines, const std::string& fallbackAdvice) {
  const std::string step = FailedStep(lines);
  const std::optional<std::uint32_t> code = ErrorCodeIn(step);
  const std::optional<Explanation> known = code ? Explain(*code) : std::nullopt;
  const std::string quote = step.empty() ? "" : " (library log: " + SanitizeForTerminal(step) + ")";
  return known ? std::string(": ") + known->cause + "; " + known->nextStep + quote
               : quote + "; " + fallbackAdvice;
}

}  // namespace nuveqcam
