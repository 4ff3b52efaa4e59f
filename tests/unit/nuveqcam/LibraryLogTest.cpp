#include "camera/LibraryLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <log4cplus/logger.h>
#include <log4cplus/loggingmacros.h>

#include <set>
#include <sstream>

namespace nuveqcam {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::IsEmpty;

void LogLikeTheLibrary(const wchar_t* text) {
  log4cplus::Logger::getInstance(L"nuveq.camera").log(log4cplus::ERROR_LOG_LEVEL, text);
}

TEST(LibraryLog, KeepsTheMostRecentLinesUntilCleared) {
  LibraryLog log(nullptr);
  LogLikeTheLibrary(L"one");
  LogLikeTheLibrary(L"two");
  EXPECT_THAT(log.Lines(), ElementsAre("one", "two"));
  log.Clear();
  EXPECT_THAT(log.Lines(), IsEmpty());
  for (int i = 0; i < 1000; ++i) {
    LogLikeTheLibrary(L"many");
  }
  EXPECT_LT(log.Lines().size(), 100);
  EXPECT_GT(log.Lines().size(), 10);
}

TEST(LibraryLog, PrintsLinesInUtf8) {
  std::ostringstream printed;
  const LibraryLog log(&printed);
  LogLikeTheLibrary(L"Kamera \u00fc \u4e2d");
  EXPECT_THAT(printed.str(), EndsWith(" ERROR Kamera \u00fc \u4e2d\n"));
}

TEST(LibraryLog, DetachesFromTheLoggerOnDestruction) {
  std::ostringstream printed;
  {
    // Destroyed at once.
    const LibraryLog log(&printed);
  }
  const LibraryLog other(nullptr);
  LogLikeTheLibrary(L"later");
  EXPECT_EQ(printed.str(), "");
  EXPECT_THAT(other.Lines(), ElementsAre("later"));
}

TEST(LibraryLog, CollectsTheFormatsOfAllLinesUntilCleared) {
  LibraryLog log(nullptr);
  LogLikeTheLibrary(L"[C]ParseMediaType success, width: 640, height:480,fps:30,subType:844715353(C::P)");
  for (int i = 0; i < 1000; ++i) {
    LogLikeTheLibrary(L"many");
  }
  EXPECT_THAT(log.Formats(), ElementsAre(SizeRate{{640, 480}, 30}));
  log.Clear();
  EXPECT_THAT(log.Formats(), IsEmpty());
}

TEST(LoggedFormat, IsASizeAndARate) {
  const std::string head = "[CameraOperator]ParseMediaType success, ";
  EXPECT_EQ(
      FormatIn(head + "width: 1280, height:720,fps:10,subType:1196444237(CameraOperator::ParseMediaType)"),
      (SizeRate{{1280, 720}, 10}));
  EXPECT_EQ(FormatIn(head + "width: 640, height:-480,fps:30,subType:1"), (SizeRate{{640, 480}, 30}));
  for (const char* const rest :
       {"", "width: , height:480,fps:30", "width: 640, height:480,fps:", "width: 640",
        "width: 99999999999, height:480,fps:30", "width: x, height:480,fps:30"}) {
    EXPECT_EQ(FormatIn(head + rest), std::nullopt) << rest;
  }
  EXPECT_EQ(FormatIn("Set camera parameter, width: 640, height:480,fps:30"), std::nullopt);
}

TEST(FailedStep, IsTheInnermostLineWithAnErrorCode) {
  EXPECT_EQ(
      FailedStep(
          {"[CameraOperator]start OpenCamera, width:1(CameraOperator::OpenCamera)",
           "[CameraOperator]Set camera parameter fail, error:-2147024726(CameraOperator::SetCameraFormat)",
           "[CameraOperator]fail to open camera(CameraOperator::OpenCameraInner)"}),
      "Set camera parameter fail, error:-2147024726");
  EXPECT_EQ(FailedStep({"[A]fail early(A::B)", "[A]AddFilter fail, error: -1(A::C)"}),
            "AddFilter fail, error: -1");
}

TEST(FailedStep, IsTheFirstFailureIfNoLineHasACode) {
  EXPECT_EQ(FailedStep({"fine", "[X]init video encoder failed(X::Y)", "[X]fail to init(X::Z)"}),
            "init video encoder failed");
  EXPECT_EQ(FailedStep({"[X]OpenCamera success.(X::Y)"}), "");
  EXPECT_EQ(FailedStep({}), "");
}

TEST(FailedStep, AcceptsMalformedLines) {
  for (const char* const line :
       {")", "[", "fail)", "[fail", "[](fail)", "fail(", "error:", "fail error: x"}) {
    EXPECT_LE(FailedStep({line}).size(), std::string(line).size());
  }
}

TEST(ErrorCode, IsParsedAsASystemErrorCode) {
  EXPECT_EQ(ErrorCodeIn("fail, error:-2147024726(X)"), 0x800700AAU);
  EXPECT_EQ(ErrorCodeIn("fail, error: 1"), 1U);
  EXPECT_EQ(ErrorCodeIn("fail, error: "), std::nullopt);
  EXPECT_EQ(ErrorCodeIn("fail, error: 99999999999"), std::nullopt);
  EXPECT_EQ(ErrorCodeIn("fail 5"), std::nullopt);
}

TEST(Explanation, IsUniqueAndCompleteForEveryCode) {
  ASSERT_FALSE(KnownExplanations().empty());
  std::set<std::uint32_t> codes;
  for (const Explanation& known : KnownExplanations()) {
    EXPECT_TRUE(codes.insert(known.code).second) << known.code;
    EXPECT_STRNE(Explain(known.code)->cause, "") << known.code;
    EXPECT_STRNE(Explain(known.code)->nextStep, "") << known.code;
  }
  EXPECT_FALSE(Explain(0x80004005));
}

TEST(Reason, ExplainsKnownCodesAndQuotesTheLibrary) {
  EXPECT_EQ(ReasonText({"[C]Set camera parameter fail, error:-2147024726(C::S)"}, "do something"),
            ": the camera is in use by another program; close that program and try again (library log: Set "
            "camera parameter fail, error:-2147024726)");
  EXPECT_EQ(ReasonText({"[C]Set camera parameter fail, error:-5(C::S)"}, "do something"),
            " (library log: Set camera parameter fail, error:-5); do something");
  EXPECT_EQ(ReasonText({}, "do something"), "; do something");
}

}  // namespace
}  // namespace nuveqcam
