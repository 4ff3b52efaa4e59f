#include "camera/DefaultSize.h"

#include <algorithm>
#include <utility>

#include "cli/Text.h"

namespace nuveqcam {
namespace {

using StartTime = std::chrono::duration<double>;

constexpr Size kPreferredSize{1280, 720};

// The part of the wanted rate that a size has to deliver.
constexpr double kEnough = 0.75;

// The first packet waits for the encoder to start, so the judgement begins with the second one.
constexpr std::size_t kFirstJudgedPacket = 1;
constexpr double kMinIntervals = 6;
// A delay within this time is made up for by the frames that wait meanwhile.
constexpr StartTime kJudgingTime{0.4};

// A short look rejects a stream of less than this part of the wanted rate, after this time and after the time
// of so many intervals.
constexpr double kClearlySlow = 0.5;
constexpr StartTime kShortTime{0.15};
constexpr double kShortIntervals = 4;

// A lower rate would take longer to judge than a recording may be.
constexpr double kMinJudgedFps = 15;

// Rates that differ by less are equal within the accuracy of a judgement.
constexpr double kAboutEqual = 0.1;

std::uint64_t AreaOf(const Size& size) { return std::uint64_t{size.width} * size.height; }

bool IsWithinPreferred(const Size& size) {
  return size.width <= kPreferredSize.width && size.height <= kPreferredSize.height;
}

bool IsPreferred(const Size& a, const Size& b) {
  const bool isWithin = IsWithinPreferred(a);
  if (isWithin != IsWithinPreferred(b)) {
    return isWithin;
  }
  return isWithin ? AreaOf(a) > AreaOf(b) : AreaOf(a) < AreaOf(b);
}

}  // namespace

std::vector<Size> SizesByPreference(std::vector<Size> sizes) {
  std::stable_sort(sizes.begin(), sizes.end(), IsPreferred);
  return sizes;
}

SizePlan PlanSizes(const Capabilities& camera, std::uint32_t fps) {
  SizePlan plan{SizesByPreference(camera.sizes), fps, static_cast<double>(fps), false};
  std::uint32_t highest = 0;
  for (const Size& size : camera.sizes) {
    highest = std::max(highest, ListedFps(camera, size).value_or(0));
  }
  plan.isListed = highest != 0;
  if (plan.isListed) {
    plan.wantedFps = std::min(fps, highest);
    std::erase_if(plan.sizes, [&](const Size& size) {
      return ListedFps(camera, size).value_or(0) < kEnough * plan.wantedFps;
    });
  } else if (!camera.rates.empty()) {
    plan.wantedFps = std::min(fps, WholeFps(*std::max_element(camera.rates.begin(), camera.rates.end())));
  }
  return plan;
}

StartRate JudgeStart(std::span<const Clock::time_point> arrivals, Clock::time_point now, double wantedFps,
                     StartLook look) {
  if (arrivals.empty()) {
    return {};
  }
  const std::size_t first = std::min(kFirstJudgedPacket, arrivals.size() - 1);
  const auto intervals = static_cast<double>(arrivals.size() - 1 - first);
  const StartTime received = arrivals.back() - arrivals[first];
  const StartTime elapsed = now - arrivals[first];
  const double fps = received.count() > 0 ? intervals / received.count() : wantedFps;
  const double enough = kEnough * wantedFps;
  if (intervals >= kMinIntervals && fps >= enough) {
    return {StartJudgement::kFastEnough, fps};
  }
  if (look == StartLook::kShort && elapsed >= std::max(kShortTime, StartTime(kShortIntervals / wantedFps)) &&
      intervals < kClearlySlow * wantedFps * elapsed.count()) {
    // So few packets may have waited and arrived at once: their distances are not the rate.
    return {StartJudgement::kTooSlow, intervals / elapsed.count()};
  }
  if (elapsed < std::max(kJudgingTime, StartTime(kMinIntervals / enough))) {
    return {};
  }
  if (intervals >= enough * elapsed.count()) {
    return {StartJudgement::kFastEnough, fps};
  }
  // Packets that have waited arrive at once. The next packet is still to come.
  return {StartJudgement::kTooSlow, std::min(fps, (intervals + 1) / elapsed.count())};
}

SizeSearch::SizeSearch(SizePlan plan)
    : m_plan(std::move(plan)),
      m_candidates(m_plan.sizes.size()),
      m_isOver(m_plan.sizes.size() == 1 || m_plan.wantedFps < kMinJudgedFps) {}

void SizeSearch::NoteFastEnough() {
  m_candidates[m_current].state = State::kFastEnough;
  GoOn();
}

void SizeSearch::NoteTooSlow(double fps) {
  m_candidates[m_current] = {State::kTooSlow, fps};
  const std::size_t smallest = SmallestIndex();
  if (m_plan.isListed && m_current == 0 && smallest != 0) {
    m_current = smallest;
    return;
  }
  if (m_plan.isListed && m_current == smallest) {
    m_look = StartLook::kShort;
  }
  GoOn();
}

// Takes the preferred size that is fast enough or not judged yet.
void SizeSearch::GoOn() {
  const auto usable = std::find_if(m_candidates.begin(), m_candidates.end(),
                                   [](const Candidate& other) { return other.state != State::kTooSlow; });
  if (usable == m_candidates.end()) {
    EndWith(FastestIndex());
    return;
  }
  m_current = static_cast<std::size_t>(usable - m_candidates.begin());
  m_isOver = usable->state == State::kFastEnough;
}

void SizeSearch::EndWith(std::size_t index) {
  m_current = index;
  m_isOver = true;
}

std::size_t SizeSearch::SmallestIndex() const {
  const auto smallest = std::min_element(m_plan.sizes.begin(), m_plan.sizes.end(),
                                         [](const Size& a, const Size& b) { return AreaOf(a) < AreaOf(b); });
  return static_cast<std::size_t>(smallest - m_plan.sizes.begin());
}

std::size_t SizeSearch::FastestIndex() const {
  double highest = 0;
  for (const Candidate& candidate : m_candidates) {
    highest = std::max(highest, candidate.fps);
  }
  const auto fastest =
      std::find_if(m_candidates.begin(), m_candidates.end(), [&](const Candidate& candidate) {
        return candidate.state == State::kTooSlow && candidate.fps >= (1 - kAboutEqual) * highest;
      });
  return static_cast<std::size_t>(fastest - m_candidates.begin());
}

std::string SizeSearch::Message() const {
  if (m_candidates.front().state != State::kTooSlow) {
    return {};
  }
  const std::string wanted = " of " + Decimal(m_plan.wantedFps, 0) + " frames per second";
  const Candidate& chosen = m_candidates[m_current];
  if (chosen.state == State::kTooSlow) {
    const auto untried =
        std::count_if(m_candidates.begin(), m_candidates.end(),
                      [](const Candidate& candidate) { return candidate.state == State::kUnknown; });
    const std::string text = std::string(untried == 0 ? "no size" : "no size that was tried") + " delivers " +
                             Decimal(m_plan.wantedFps, 0) +
                             " frames per second, as in dim light or on a busy PC; using " +
                             ToText(Current()) + ", which delivers about " + Decimal(chosen.fps, 0);
    return untried == 0 ? text
                        : text + "; trying " + std::to_string(untried) +
                              " more would delay the start: 'nuveqcam probe' measures all sizes";
  }
  return ToText(m_plan.sizes.front()) + " delivers only about " + Decimal(m_candidates.front().fps, 0) +
         wanted + "; using " + ToText(Current()) + " (--size chooses a size)";
}

}  // namespace nuveqcam
