// Format of log messages: text, level, function signature and independence of the locale.
#include "Log.h"

#include <locale>

#include "support/CameraHandlerTest.h"

namespace {

using support::CameraHandlerTest;
using support::Frame;
using support::LoadedLibrary;

using LogFormat = CameraHandlerTest;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
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

TEST_F(LogFormat, MessageHasTheFullFunctionSignature) {
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSE_INCOMPLETE);
  ASSERT_EQ(platform.Logs().size(), 1U);
  const std::string function = platform.Logs().at(0).function;
  EXPECT_THAT(function, HasSubstr("bool CameraOperator::CloseCameraInner(const char"));
}

TEST_F(LogFormat, EveryMessageHasTheSignatureOfItsFunction) {
  QueryAndOpen();
  // Other classes and the exported function use their signatures, too.
  EXPECT_TRUE(platform.DeliverFrame(Frame(0, 0)));
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  platform.SetPc(scripted::LaptopPc({scripted::Yuy2(640, 480, 30), scripted::Yuy2(640, 480, 30)}));
  EXPECT_EQ(Query(), 0);
  LoadedLibrary same(NUVEQ_LIBRARY_FILE);
  EXPECT_EQ(same.GetCameraHandler(nullptr), -2);
  EXPECT_EQ(platform.Logs().size(), 11U);
  for (const scripted::LogLine& log : platform.Logs()) {
    const std::string text(log.text.begin(), log.text.end());
    const std::size_t begin = text.rfind('(') + 1;
    const std::string name = text.substr(begin, text.size() - begin - 1);
    EXPECT_THAT(log.function, HasSubstr(" " + name + "(")) << text;
  }
}

TEST_F(LogFormat, NumbersAreIndependentOfTheLocale) {
  const GlobalLocale locale(std::locale(std::locale::classic(), new Grouping));
  platform.ClearJournal();
  std::thread other([&] {
    // The stream of a new thread uses the global locale.
    camera_log::Write(log4cplus::ERROR_LOG_LEVEL, {"file", 1, "function"}, L"a ", -2147467259, L" b ",
                      844715353U, L" c ", 123456789012LL);
  });
  other.join();
  EXPECT_THAT(LogLines(), ElementsAre("ERROR file:1 a -2147467259 b 844715353 c 123456789012"));
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
