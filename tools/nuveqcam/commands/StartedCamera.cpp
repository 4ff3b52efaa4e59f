#include "commands/StartedCamera.h"

#include <algorithm>
#include <optional>
#include <ostream>
#include <thread>

namespace nuveqcam {
namespace {

// How often the first packets are judged.
constexpr std::chrono::milliseconds kJudgingInterval{5};

// No further short look begins after this time.
constexpr std::chrono::milliseconds kShortLooksTime{500};

}  // namespace

StartedCamera::StartedCamera(const CommandContext& context, const CameraPlan& plan,
                             const std::function<bool()>& isInterrupted)
    : m_context(context) {
  Open(plan.Request(plan.sizes.sizes.front()));
  Search(plan, isInterrupted);
}

void StartedCamera::Open(const CameraRequest& request) {
  m_open.reset();
  m_queue = std::make_unique<PacketQueue>(kQueueBytes);
  m_request = request;
  m_requestedAt = Clock::now();
  m_open = std::make_unique<OpenCamera>(m_context.camera, m_request, *m_queue);
  m_openedAt = Clock::now();
}

void StartedCamera::Search(const CameraPlan& plan, const std::function<bool()>& isInterrupted) {
  SizeSearch search(plan.sizes);
  std::optional<Clock::time_point> shortLooksEnd;
  const auto noteTooSlow = [&](double fps) {
    search.NoteTooSlow(fps);
    if (!search.IsOpenEnded() || search.Look() != StartLook::kShort) {
      return;
    }
    const auto now = Clock::now();
    shortLooksEnd = shortLooksEnd.value_or(now + kShortLooksTime);
    if (now >= *shortLooksEnd) {
      search.EndShortLooks();
    }
  };
  while (search.IsOpenEnded()) {
    const StartRate rate = Assess(plan.sizes.wantedFps, search.Look(), isInterrupted);
    if (rate.judgement == StartJudgement::kUndecided) {
      return;
    }
    if (rate.judgement == StartJudgement::kFastEnough) {
      search.NoteFastEnough();
    } else {
      noteTooSlow(rate.fps);
    }
    while (m_open == nullptr || !(search.Current() == m_request.size)) {
      try {
        Open(plan.Request(search.Current()));
      } catch (const Failure&) {
        // An alternative that cannot be opened is no reason to fail.
        if (!search.IsOpenEnded()) {
          throw;
        }
        noteTooSlow(0);
      }
    }
  }
  m_isBestSize = true;
  m_sizeMessage = search.Message();
  if (!m_sizeMessage.empty()) {
    m_context.console.err << "nuveqcam: " + m_sizeMessage << std::endl;
  }
}

StartRate StartedCamera::Assess(double wantedFps, StartLook look,
                                const std::function<bool()>& isInterrupted) const {
  for (;;) {
    const auto now = Clock::now();
    const StreamEnd end = DetermineStreamEnd({.idle = std::min(now - m_openedAt, m_queue->IdleTime(now))}, {},
                                             m_context.timeouts);
    if (end != StreamEnd::kNone || IsCameraDisconnected() || m_queue->HasLoss() || isInterrupted()) {
      return {};
    }
    const StartRate rate = JudgeStart(m_queue->QueuedArrivals(), now, wantedFps, look);
    if (rate.judgement != StartJudgement::kUndecided) {
      return rate;
    }
    std::this_thread::sleep_for(kJudgingInterval);
  }
}

}  // namespace nuveqcam
