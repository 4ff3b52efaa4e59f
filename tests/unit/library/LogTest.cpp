// Logging with a locale and log levels of the host. LogMessagesTest.cpp tests the messages.
#include "Log.h"

#include <locale>

#include "support/CameraHandlerTest.h"

namespace {

using support::CameraHandlerTest;

using LogFormat = CameraHandlerTest;
using ::testing::IsEmpty;

// Restores the global locale.
class GlobalLocale {
 public:
  explicit GlobalLocale(const std::locale& locale) : m_before(std::locale::global(locale)) {}
  GlobalLocale(const GlobalLocale&) = delete;
  GlobalLocale& operator=(const GlobalLocale&) = delete;
  ~GlobalLocale() { std::locale::global(m_before); }

 private:
  std::locale m_before;
};

// Groups digits by threes.
class Grouping : public std::numpunct<wchar_t> {
 protected:
  wchar_t do_thousands_sep() const override { return L'.'; }
  std::string do_grouping() const override { return "\3"; }
};

TEST_F(LogFormat, NumbersAreIndependentOfTheLocale) {
  const GlobalLocale locale(std::locale(std::locale::classic(), new Grouping));
  platform.ClearJournal();
  std::thread other([&] {
    // The stream of a new thread uses the global locale.
    camera_log::Write(log4cplus::ERROR_LOG_LEVEL, {"file", 1, "function"}, L"a ", -2147467259, L" b ",
                      844715353U, L" c ", 123456789012LL);
  });
  other.join();
  ASSERT_EQ(platform.Logs().size(), 1U);
  EXPECT_EQ(platform.Logs().at(0).text, L"a -2147467259 b 844715353 c 123456789012");
}

TEST_F(LogFormat, DisabledLevelsAreNotLogged) {
  log4cplus::Logger logger = GetLogger();
  logger.setLogLevel(log4cplus::ERROR_LOG_LEVEL);
  QueryAndOpen();
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  EXPECT_EQ(platform.Logs().size(), 4U);
  for (const scripted::LogLine& log : platform.Logs()) {
    EXPECT_EQ(log.level, log4cplus::ERROR_LOG_LEVEL);
  }
  platform.ClearJournal();
  logger.setLogLevel(log4cplus::OFF_LOG_LEVEL);
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSE_INCOMPLETE);
  EXPECT_THAT(platform.Logs(), IsEmpty());
  logger.setLogLevel(log4cplus::ALL_LOG_LEVEL);
}

}  // namespace
