#include "probe/ProbeReport.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/Help.h"
#include "commands/Json.h"

namespace nuveqcam {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::StartsWith;

const std::vector<std::uint32_t> kRates{10000, 15000, 30000};

constexpr const char* kSlownessHint =
    "hint: more light, a smaller size, or fewer programs at the same time may help";

// A measurement without findings.
SizeResult GoodResult(const Size& size, std::uint32_t fps = 30) {
  SizeResult result;
  result.request = {"0", size, fps};
  result.listedFps = fps;
  result.start = StartFigures{Milliseconds(312.4), Milliseconds(340)};
  result.figures.packets = 90;
  result.figures.largestPacket = 85432;
  result.figures.fps = fps - 0.016;
  result.figures.kbits = 1536.25;
  result.figures.jitterP99 = Milliseconds(2.125);
  result.units.picture = size;
  result.cpuPerFrame = Milliseconds(4.21);
  result.counters = CaptureCounters{};
  return result;
}

SizeResult DeliveringAt(const Size& size, double delivered) {
  SizeResult result = GoodResult(size);
  result.figures.fps = delivered;
  result.findings = FindingsOf(result, kRates);
  return result;
}

ProbeReport ReportOf(std::vector<SizeResult> sizes) {
  ProbeReport report;
  report.camera = Capabilities{"0", {}, kRates};
  for (const SizeResult& result : sizes) {
    report.camera->sizes.push_back(result.request.size);
  }
  report.name = "Integrated Camera";
  report.node = "/dev/video0";
  report.seconds = 3;
  report.sizes = std::move(sizes);
  report.checks = {{"closeWithoutOpen", ""}, {"closeAfter1", ""}};
  report.isComplete = true;
  return report;
}

std::vector<Finding> FindingsAt(double delivered, bool isHighestRate = true, std::uint32_t asked = 30) {
  SizeResult result = GoodResult({640, 480}, asked);
  result.figures.fps = delivered;
  result.isHighestRate = isHighestRate;
  return FindingsOf(result, kRates);
}

TEST(ProbeFindings, RateMayDifferByTenPercent) {
  for (const double fps : {27.1, 30.0, 32.9}) {
    EXPECT_THAT(FindingsAt(fps), IsEmpty()) << fps;
  }
  EXPECT_THAT(FindingsAt(26.9), ElementsAre(Finding::kTooSlow));
  EXPECT_THAT(FindingsAt(15), ElementsAre(Finding::kTooSlow));
  EXPECT_THAT(FindingsAt(33.1), ElementsAre(Finding::kTooFast));
}

// The library rounds the rates of the driver down.
TEST(ProbeFindings, RateMayBeLessThanOneFrameHigher) {
  EXPECT_THAT(FindingsAt(7.5, true, 7), IsEmpty());
  EXPECT_THAT(FindingsAt(2.5, true, 2), IsEmpty());
  EXPECT_THAT(FindingsAt(3.1, true, 2), ElementsAre(Finding::kTooFast));
}

TEST(ProbeFindings, AnotherOfferedRateIsNoFaultForALowerRequest) {
  EXPECT_THAT(FindingsAt(30, false, 15), ElementsAre(Finding::kOtherRate));
  EXPECT_THAT(FindingsAt(20, false, 15), ElementsAre(Finding::kTooFast));
  EXPECT_THAT(FindingsAt(30, true, 15), ElementsAre(Finding::kTooFast));
}

TEST(ProbeFindings, FailureIsTheOnlyFinding) {
  SizeResult result;
  result.request = {"0", {640, 480}, 30};
  result.failure = "in use";
  EXPECT_THAT(FindingsOf(result, kRates), ElementsAre(Finding::kCannotOpen));
}

TEST(ProbeFindings, DistinguishNoPacketsFromAStreamThatStops) {
  SizeResult result;
  result.request = {"0", {640, 480}, 30};
  result.end = CaptureEnd::kNoPackets;
  EXPECT_THAT(FindingsOf(result, kRates), ElementsAre(Finding::kNoPackets));
  result = GoodResult({640, 480});
  result.end = CaptureEnd::kNoPackets;
  EXPECT_THAT(FindingsOf(result, kRates), ElementsAre(Finding::kStopped));
  result.end = CaptureEnd::kDisconnected;
  EXPECT_THAT(FindingsOf(result, kRates), ElementsAre(Finding::kStopped));
  result.end = CaptureEnd::kInterrupted;
  EXPECT_THAT(FindingsOf(result, kRates), IsEmpty());
}

TEST(ProbeFindings, PictureHasTheEvenSizeBelowAnOddOne) {
  SizeResult result = GoodResult({641, 481});
  result.units.picture = {640, 480};
  EXPECT_THAT(FindingsOf(result, kRates), IsEmpty());
  result.units.picture = {640, 478};
  EXPECT_THAT(FindingsOf(result, kRates), ElementsAre(Finding::kOtherPicture));
}

TEST(ProbeFindings, FaultyPacketsAreAFault) {
  SizeResult result = GoodResult({640, 480});
  result.units.faulty = 1;
  EXPECT_THAT(FindingsOf(result, kRates), ElementsAre(Finding::kFaultyPacket));
  EXPECT_TRUE(IsFault(Finding::kFaultyPacket));
}

TEST(ProbeFindings, LostFramesJitterAndASlowStartAreRemarks) {
  SizeResult result = GoodResult({640, 480});
  result.counters = CaptureCounters{0, 2};
  result.figures.jitterP99 = Milliseconds(17);
  result.start->worst = Milliseconds(2001);
  result.findings = FindingsOf(result, kRates);
  EXPECT_THAT(result.findings, ElementsAre(Finding::kFramesLost, Finding::kJitter, Finding::kSlowStart));
  EXPECT_FALSE(HasFault(result));
}

TEST(ProbeBest, IsTheDefaultSizeOfThoseWithTheRate) {
  const ProbeReport report = ReportOf({DeliveringAt({320, 240}, 30), DeliveringAt({848, 480}, 29.9),
                                       DeliveringAt({960, 540}, 10), DeliveringAt({1920, 1080}, 30)});
  ASSERT_NE(FindBest(report), nullptr);
  EXPECT_EQ(FindBest(report)->request.size, (Size{848, 480}));
}

TEST(ProbeBest, IsTheFastestIfNoneHasTheRate) {
  SizeResult slow = GoodResult({1280, 720}, 10);
  SizeResult faster = GoodResult({640, 480}, 15);
  ProbeReport report = ReportOf({slow, faster});
  EXPECT_EQ(FindBest(report)->request.size, (Size{640, 480}));
}

TEST(ProbeBest, IsTheHighestRateOfASize) {
  SizeResult slow = GoodResult({640, 480}, 30);
  SizeResult fast = GoodResult({640, 480}, 60);
  EXPECT_EQ(FindBest(ReportOf({slow, fast}))->request.fps, 60);
}

TEST(ProbeBest, IsMissingIfEverySizeHasAFault) {
  EXPECT_EQ(FindBest(ReportOf({DeliveringAt({640, 480}, 15)})), nullptr);
  EXPECT_EQ(FindBest(ReportOf({})), nullptr);
}

TEST(ProbeAdvice, NamesTheBestSizeIfNothingIsWrong) {
  EXPECT_THAT(ProbeAdvice(ReportOf({GoodResult({1280, 720})})),
              ElementsAre("best: 1280x720 at 30 fps, which delivers 30.0 fps"));
}

TEST(ProbeAdvice, NamesWhatIsWrong) {
  ProbeReport report = ReportOf({GoodResult({640, 480}), DeliveringAt({960, 540}, 10)});
  report.checks.push_back({"closeAfter55", "the camera stops after 50 packets"});
  EXPECT_THAT(ProbeAdvice(report),
              ElementsAre("best: 640x480 at 30 fps, which delivers 30.0 fps",
                          "wrong: 960x540 at 30 fps delivers 10.0 fps; closeAfter55: the "
                          "camera stops after 50 packets",
                          kSlownessHint));
}

TEST(ProbeAdvice, NamesAtMostThreeFaults) {
  EXPECT_THAT(ProbeAdvice(ReportOf({DeliveringAt({640, 360}, 10), DeliveringAt({640, 480}, 11),
                                    DeliveringAt({800, 600}, 12), DeliveringAt({960, 540}, 13),
                                    DeliveringAt({1280, 720}, 14)})),
              ElementsAre("best: none, because every measured size has a fault",
                          "wrong: 640x360 at 30 fps delivers 10.0 fps; 640x480 at 30 fps delivers 11.0 fps; "
                          "800x600 at 30 fps delivers 12.0 fps; and 2 more",
                          kSlownessHint));
}

TEST(ProbeAdvice, HasAHintForEachWrongRate) {
  EXPECT_THAT(ProbeAdvice(ReportOf({DeliveringAt({640, 360}, 10), DeliveringAt({640, 480}, 60)})).back(),
              std::string(kSlownessHint) + "; the camera does not keep to this rate; another rate may help");
}

TEST(ProbeAdvice, DescribesEveryFault) {
  SizeResult refused = GoodResult({640, 480});
  refused.failure = "refused";
  SizeResult stopped = GoodResult({640, 480});
  stopped.end = CaptureEnd::kNoPackets;
  SizeResult damaged = GoodResult({640, 480});
  damaged.units.faulty = 12;
  damaged.units.firstFault = "packet 6: cannot be decoded";
  SizeResult cropped = GoodResult({640, 480});
  cropped.units.picture = {632, 480};
  const std::vector<std::pair<SizeResult, std::string>> cases{
      {refused, "wrong: 640x480 at 30 fps cannot be opened"},
      {stopped, "wrong: 640x480 at 30 fps stops after 90 packets"},
      {damaged, "wrong: 640x480 at 30 fps has 12 faulty of 90 packets (packet 6: cannot be decoded)"},
      {cropped, "wrong: 640x480 at 30 fps delivers pictures of 632x480"}};
  for (const auto& [result, text] : cases) {
    SizeResult found = result;
    found.findings = FindingsOf(found, kRates);
    ASSERT_THAT(ProbeAdvice(ReportOf({found})), SizeIs(2)) << text;
    EXPECT_EQ(ProbeAdvice(ReportOf({found}))[1], text);
  }
}

TEST(ProbeExitCode, IsOkOnlyWithoutFaultsAndIfComplete) {
  ProbeReport report = ReportOf({GoodResult({640, 480})});
  EXPECT_EQ(ProbeExitCode(report), ExitCode::kOk);
  report.isComplete = false;
  EXPECT_EQ(ProbeExitCode(report), ExitCode::kEndedEarly);
  report.checks.push_back({"secondOpen", "the second open returns 0"});
  EXPECT_EQ(ProbeExitCode(report), ExitCode::kProbeFault);
  EXPECT_EQ(ProbeExitCode(ReportOf({DeliveringAt({640, 480}, 15)})), ExitCode::kProbeFault);
}

TEST(ProbeText, IsAligned) {
  SizeResult refused;
  refused.request = {"0", {1920, 1080}, 30};
  refused.failure = "the camera is in use";
  refused.findings = FindingsOf(refused, kRates);
  SizeResult jittery = GoodResult({640, 480});
  jittery.figures.jitterP99 = Milliseconds(20);
  jittery.counters = CaptureCounters{3, 1};
  jittery.findings = FindingsOf(jittery, kRates);
  ProbeReport report = ReportOf({jittery, refused});
  report.checks.push_back({"secondOpen", "the second open returns 0"});
  EXPECT_EQ(
      ProbeText(report),
      "Camera 0: Integrated Camera (/dev/video0), 3 s for each size\n"
      "       size  asked    fps    first  jitter  lost  kbit/s  largest   CPU  picture  result\n"
      "    640x480     30  29.98  312/340    20.0   3/1    1536    85432  4.21  640x480  framesLost, jitter\n"
      "  1920x1080     30      -        -       -     -       -        -     -        -  cannotOpen\n"
      "  1920x1080 at 30 fps: the camera is in use\n"
      "  first: ms to the first packet, median/worst of three opens; jitter: ms; lost: frames\n"
      "  missed/damaged; largest: bytes of a packet; CPU: ms of this process for each frame\n"
      "\n"
      "Behavior: 2 of 3 checks as documented\n"
      "  secondOpen: the second open returns 0\n"
      "\n"
      "  - best: 640x480 at 30 fps, which delivers 30.0 fps\n"
      "  - wrong: 1920x1080 at 30 fps cannot be opened; secondOpen: the second open returns 0\n");
}

TEST(ProbeText, TellsThatItIsIncomplete) {
  ProbeReport report = ReportOf({GoodResult({640, 480})});
  report.isComplete = false;
  report.checks.clear();
  EXPECT_THAT(ProbeText(report),
              HasSubstr("\nBehavior: not checked\n\nThe probe is incomplete.\n  - best: "));
}

TEST(ProbeText, PrintsNoControlCharacters) {
  ProbeReport report = ReportOf({GoodResult({640, 480})});
  report.name = "\x1b[2J";
  report.node = "a\x7f";
  report.camera->id = "\a";
  EXPECT_THAT(ProbeText(report), StartsWith("Camera ?: ?[2J (a?), 3 s"));
}

// "1.2.3" of "nuveqcam 1.2.3\n..."
std::string ToolVersion() {
  const std::string text = VersionText();
  const std::size_t begin = text.find(' ') + 1;
  return text.substr(begin, text.find('\n') - begin);
}

TEST(ProbeJson, HasAllMembers) {
  SizeResult refused;
  refused.request = {"0", {1920, 1080}, 30};
  refused.failure = "the camera is in use";
  refused.findings = FindingsOf(refused, kRates);
  ProbeReport report = ReportOf({GoodResult({640, 480}), refused});
  report.checks = {{"secondOpen", "the second open returns 0"}, {"keyFrames", ""}};
  EXPECT_EQ(
      ProbeJson(report),
      R"({"version":")" + ToolVersion() +
          R"(","ok":false,"complete":true,"seconds":3,)"
          R"("name":"Integrated Camera","node":"/dev/video0","camera":{"id":"0",)"
          R"("sizes":[{"width":640,"height":480},{"width":1920,"height":1080}],"rates":[10,15,30]},)"
          R"("sizes":[{"width":640,"height":480,"asked":30,"listed":30,"delivered":29.984,)"
          R"("firstPacketMedian":312.4,"firstPacketWorst":340.0,"jitterP99":2.125,"missed":0,"damaged":0,)"
          R"("bitRate":1536.25,"largestPacket":85432,"cpuPerFrame":4.21,"packets":90,"pictureWidth":640,)"
          R"("pictureHeight":480,"faultyPackets":0,"packetFault":null,"failure":null,"findings":[]},)"
          R"({"width":1920,"height":1080,"asked":30,"listed":null,"delivered":null,"firstPacketMedian":null,)"
          R"("firstPacketWorst":null,"jitterP99":null,"missed":null,"damaged":null,"bitRate":null,)"
          R"("largestPacket":null,"cpuPerFrame":null,"packets":0,"pictureWidth":null,"pictureHeight":null,)"
          R"("faultyPackets":0,"packetFault":null,"failure":"the camera is in use","findings":["cannotOpen"]}],)"
          R"("checks":[{"check":"secondOpen","fault":"the second open returns 0"},)"
          R"({"check":"keyFrames","fault":null}],"best":{"width":640,"height":480,"asked":30},)"
          R"("advice":["best: 640x480 at 30 fps, which delivers 30.0 fps",)"
          R"("wrong: 1920x1080 at 30 fps cannot be opened; secondOpen: the second open returns 0"]})"
          "\n");
}

TEST(ProbeJson, IsAnObjectAlsoWithoutACamera) {
  const std::string json = ProbeJson({});
  EXPECT_THAT(json, HasSubstr(R"("ok":false,"complete":false,)"));
  EXPECT_THAT(json,
              HasSubstr(R"("name":null,"node":null,"camera":null,"sizes":[],"checks":[],"best":null,)"));
}

}  // namespace
}  // namespace nuveqcam
