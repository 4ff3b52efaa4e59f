#include "probe/ProbeReport.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <utility>

#include "camera/DefaultSize.h"
#include "cli/Text.h"

namespace nuveqcam {
namespace {

// A rate is delivered within this part of it.
constexpr double kRateTolerance = 0.1;
// Above the requested rate, which is the driver's rate rounded down to whole frames per second.
constexpr double kRoundingTolerance = 1;
constexpr double kJitterPart = 0.5;
constexpr Milliseconds kSlowStartTime{2000};
constexpr std::size_t kMaxNamedFaults = 3;

struct FindingWord {
  Finding finding;
  const char* word;
};

constexpr std::array kFindingWords{
    FindingWord{Finding::kCannotOpen, "cannotOpen"},     FindingWord{Finding::kNoPackets, "noPackets"},
    FindingWord{Finding::kStopped, "stopped"},           FindingWord{Finding::kTooSlow, "tooSlow"},
    FindingWord{Finding::kTooFast, "tooFast"},           FindingWord{Finding::kFaultyPacket, "faultyPacket"},
    FindingWord{Finding::kOtherPicture, "otherPicture"}, FindingWord{Finding::kOtherRate, "otherRate"},
    FindingWord{Finding::kFramesLost, "framesLost"},     FindingWord{Finding::kJitter, "jitter"},
    FindingWord{Finding::kSlowStart, "slowStart"}};

bool IsAbove(double fps, double requested) {
  return fps > std::max(requested * (1 + kRateTolerance), requested + kRoundingTolerance);
}

bool IsBelow(double fps, double requested) { return fps < requested * (1 - kRateTolerance); }

bool IsNearAnotherRate(double fps, std::uint32_t requested, const std::vector<std::uint32_t>& rates) {
  return std::any_of(rates.begin(), rates.end(), [&](std::uint32_t rate) {
    const std::uint32_t whole = WholeFps(rate);
    return whole != requested && !IsBelow(fps, whole) && !IsAbove(fps, whole);
  });
}

// The encoder leaves out the last line or column of an odd size.
Size EncodedSize(const Size& size) { return {size.width & ~1U, size.height & ~1U}; }

void AddRateFinding(const SizeResult& result, const std::vector<std::uint32_t>& rates,
                    std::vector<Finding>& findings) {
  if (!result.figures.fps) {
    return;
  }
  const double fps = *result.figures.fps;
  const bool isBelow = IsBelow(fps, result.request.fps);
  if (!isBelow && !IsAbove(fps, result.request.fps)) {
    return;
  }
  if (!result.isHighestRate && IsNearAnotherRate(fps, result.request.fps, rates)) {
    findings.push_back(Finding::kOtherRate);
  } else {
    findings.push_back(isBelow ? Finding::kTooSlow : Finding::kTooFast);
  }
}

std::string RequestText(const CameraRequest& request) {
  return ToText(request.size) + " at " + std::to_string(request.fps) + " fps";
}

std::vector<std::string> FaultTexts(const ProbeReport& report) {
  std::vector<std::string> texts;
  for (const SizeResult& result : report.sizes) {
    for (const Finding finding : result.findings) {
      if (IsFault(finding)) {
        texts.push_back(FindingText(result, finding));
      }
    }
  }
  for (const BehaviourResult& check : report.checks) {
    if (!check.fault.empty()) {
      texts.push_back(check.check + ": " + check.fault);
    }
  }
  return texts;
}

// The advice about the faults, each one once.
std::string FaultAdvice(const ProbeReport& report) {
  std::string text;
  for (const SizeResult& result : report.sizes) {
    for (const Finding finding : result.findings) {
      const std::string advice = AdviceFor(finding);
      if (IsFault(finding) && !advice.empty() && text.find(advice) == std::string::npos) {
        text += (text.empty() ? "" : "; ") + advice;
      }
    }
  }
  return text;
}

using ProbeRow = std::vector<std::string>;

std::string NumberOrDash(const std::optional<double>& number, int decimals) {
  return number ? Decimal(*number, decimals) : "-";
}

std::string TimeOrDash(const std::optional<Milliseconds>& time, int decimals) {
  return time ? Decimal(time->count(), decimals) : "-";
}

std::string FindingsText(const SizeResult& result) {
  std::string text;
  for (const Finding finding : result.findings) {
    text += (text.empty() ? "" : ", ") + std::string(WordFor(finding));
  }
  return text.empty() ? "ok" : text;
}

// "312/340"
std::string PairText(const std::string& a, const std::string& b) { return a + "/" + b; }

ProbeRow ToRow(const SizeResult& result) {
  const StreamFigures& figures = result.figures;
  const auto& start = result.start;
  const auto& counters = result.counters;
  return {ToText(result.request.size),
          std::to_string(result.request.fps),
          NumberOrDash(figures.fps, 2),
          start ? PairText(Decimal(start->median.count(), 0), Decimal(start->worst.count(), 0)) : "-",
          TimeOrDash(figures.jitterP99, 1),
          counters ? PairText(std::to_string(counters->missed), std::to_string(counters->damaged)) : "-",
          NumberOrDash(figures.kbits, 0),
          figures.packets != 0 ? std::to_string(figures.largestPacket) : "-",
          TimeOrDash(result.cpuPerFrame, 2),
          result.units.picture ? ToText(*result.units.picture) : "-",
          FindingsText(result)};
}

// Right-aligned columns, but for the last one.
std::string AlignedLines(const std::vector<ProbeRow>& rows) {
  std::vector<std::size_t> widths(rows.front().size());
  for (const ProbeRow& row : rows) {
    for (std::size_t i = 0; i < widths.size(); ++i) {
      widths[i] = std::max(widths[i], CodePointCount(row[i]));
    }
  }
  std::string text;
  for (const ProbeRow& row : rows) {
    for (std::size_t i = 0; i + 1 < row.size(); ++i) {
      text += "  " + PadLeft(row[i], widths[i]);
    }
    text += "  " + row.back() + "\n";
  }
  return text;
}

std::string SizesText(const ProbeReport& report) {
  std::vector<ProbeRow> rows{
      {"size", "asked", "fps", "first", "jitter", "lost", "kbit/s", "largest", "CPU", "picture", "result"}};
  std::string failures;
  for (const SizeResult& result : report.sizes) {
    rows.push_back(ToRow(result));
    if (!result.failure.empty()) {
      failures += "  " + RequestText(result.request) + ": " + result.failure + "\n";
    }
    if (!result.units.firstFault.empty()) {
      failures += "  " + RequestText(result.request) + ": " + result.units.firstFault + "\n";
    }
  }
  return AlignedLines(rows) + failures +
         "  first: ms to the first packet, median/worst of three opens; jitter: ms; lost: frames\n"
         "  missed/damaged; largest: bytes of a packet; CPU: ms of this process for each frame\n";
}

std::string ChecksText(const ProbeReport& report) {
  if (report.checks.empty()) {
    return "Behavior: not checked\n";
  }
  std::string faults;
  std::size_t good = report.checks.size();
  for (const BehaviourResult& check : report.checks) {
    if (!check.fault.empty()) {
      --good;
      faults += "  " + check.check + ": " + check.fault + "\n";
    }
  }
  return "Behavior: " + std::to_string(good) + " of " + std::to_string(report.checks.size()) +
         " checks as documented\n" + faults;
}

}  // namespace

bool IsFault(Finding finding) {
  switch (finding) {
    case Finding::kOtherRate:
    case Finding::kFramesLost:
    case Finding::kJitter:
    case Finding::kSlowStart:
      return false;
    default:
      return true;
  }
}

const char* WordFor(Finding finding) {
  return std::find_if(kFindingWords.begin(), kFindingWords.end(),
                      [&](const FindingWord& known) { return known.finding == finding; })
      ->word;
}

const char* AdviceFor(Finding finding) {
  switch (finding) {
    case Finding::kTooSlow:
      return "more light, a smaller size, or fewer programs at the same time may help";
    case Finding::kTooFast:
    case Finding::kOtherRate:
      return "the camera does not keep to this rate; another rate may help";
    default:
      return "";
  }
}

std::vector<Finding> FindingsOf(const SizeResult& result, const std::vector<std::uint32_t>& rates) {
  if (!result.failure.empty()) {
    return {Finding::kCannotOpen};
  }
  std::vector<Finding> findings;
  if (!CaptureEndText(result.end, result.figures.packets).empty()) {
    findings.push_back(result.figures.packets == 0 ? Finding::kNoPackets : Finding::kStopped);
  }
  AddRateFinding(result, rates, findings);
  const auto addIf = [&](bool isFound, Finding finding) {
    if (isFound) {
      findings.push_back(finding);
    }
  };
  addIf(result.units.faulty != 0, Finding::kFaultyPacket);
  addIf(result.units.picture && !(*result.units.picture == EncodedSize(result.request.size)),
        Finding::kOtherPicture);
  addIf(result.counters && result.counters->missed + result.counters->damaged != 0, Finding::kFramesLost);
  addIf(result.figures.fps && result.figures.jitterP99 &&
            result.figures.jitterP99->count() > kJitterPart * 1000 / *result.figures.fps,
        Finding::kJitter);
  addIf(result.start && result.start->worst > kSlowStartTime, Finding::kSlowStart);
  return findings;
}

bool HasFault(const SizeResult& result) {
  return std::any_of(result.findings.begin(), result.findings.end(), IsFault);
}

std::string FindingText(const SizeResult& result, Finding finding) {
  const std::string request = RequestText(result.request);
  switch (finding) {
    case Finding::kCannotOpen:
      return request + " cannot be opened";
    case Finding::kNoPackets:
    case Finding::kStopped:
      return request + " " + CaptureEndText(result.end, result.figures.packets);
    case Finding::kTooSlow:
    case Finding::kTooFast:
    case Finding::kOtherRate:
      return request + " delivers " + Decimal(result.figures.fps.value_or(0), 1) + " fps";
    case Finding::kFaultyPacket:
      return request + " has " + std::to_string(result.units.faulty) + " faulty of " +
             std::to_string(result.figures.packets) + " packets (" + result.units.firstFault + ")";
    case Finding::kOtherPicture:
      return request + " delivers pictures of " + ToText(result.units.picture.value_or(Size()));
    default:
      return {};
  }
}

const SizeResult* FindBest(const ProbeReport& report) {
  std::vector<const SizeResult*> good;
  double fastest = 0;
  for (const SizeResult& result : report.sizes) {
    if (!HasFault(result) && result.figures.fps) {
      good.push_back(&result);
      fastest = std::max(fastest, *result.figures.fps);
    }
  }
  if (!report.camera || good.empty()) {
    return nullptr;
  }
  const double wanted = std::min<double>(ChooseFps(report.camera->rates), fastest);
  std::erase_if(good,
                [&](const SizeResult* result) { return IsBelow(result->figures.fps.value_or(0), wanted); });
  std::vector<Size> sizes;
  std::transform(good.begin(), good.end(), std::back_inserter(sizes),
                 [](const SizeResult* result) { return result->request.size; });
  const Size size = SizesByPreference(std::move(sizes)).front();
  const SizeResult* best = nullptr;
  for (const SizeResult* const result : good) {
    if (result->request.size == size && (best == nullptr || result->figures.fps > best->figures.fps)) {
      best = result;
    }
  }
  return best;
}

std::vector<std::string> ProbeAdvice(const ProbeReport& report) {
  std::vector<std::string> advice;
  if (const SizeResult* const best = FindBest(report); best != nullptr) {
    advice.push_back("best: " + RequestText(best->request) + ", which delivers " +
                     Decimal(best->figures.fps.value_or(0), 1) + " fps");
  } else {
    advice.emplace_back(report.sizes.empty() ? "best: not known, because no size was measured"
                                             : "best: none, because every measured size has a fault");
  }
  const std::vector<std::string> faults = FaultTexts(report);
  std::string wrong;
  for (std::size_t i = 0; i < std::min(faults.size(), kMaxNamedFaults); ++i) {
    wrong += (i == 0 ? "wrong: " : "; ") + faults[i];
  }
  if (faults.size() > kMaxNamedFaults) {
    wrong += "; and " + std::to_string(faults.size() - kMaxNamedFaults) + " more";
  }
  if (!wrong.empty()) {
    advice.push_back(wrong);
  }
  if (const std::string help = FaultAdvice(report); !help.empty()) {
    advice.push_back("hint: " + help);
  }
  return advice;
}

ExitCode ProbeExitCode(const ProbeReport& report) {
  if (!FaultTexts(report).empty()) {
    return ExitCode::kProbeFault;
  }
  return report.isComplete ? ExitCode::kOk : ExitCode::kEndedEarly;
}

std::string ProbeText(const ProbeReport& report) {
  std::string text = "Camera";
  if (report.camera) {
    text += " " + SanitizeForTerminal(report.camera->id);
  }
  if (!report.name.empty()) {
    text += ": " + SanitizeForTerminal(report.name) + " (" + SanitizeForTerminal(report.node) + ")";
  }
  text += ", " + std::to_string(report.seconds) + " s for each size\n" + SizesText(report) + "\n" +
          ChecksText(report) + "\n";
  if (!report.isComplete) {
    text += "The probe is incomplete.\n";
  }
  for (const std::string& line : ProbeAdvice(report)) {
    text += "  - " + line + "\n";
  }
  return text;
}

}  // namespace nuveqcam
