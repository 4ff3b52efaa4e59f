#include "view/CameraSession.h"

#include <algorithm>
#include <exception>
#include <new>
#include <utility>

#include "cli/Text.h"

namespace nuveqcam {
namespace {

constexpr Clock::duration kNoStreamLimit{0};
constexpr std::chrono::milliseconds kNoWait{0};
// Without a packet, the camera is given up only after so many waits for one. If the process was stopped or
// the PC was suspended, the time since the latest packet alone says nothing.
constexpr int kMinIdlePolls = 25;

// Ends the stream's session at scope exit.
class StreamSession {
 public:
  explicit StreamSession(LiveStream& stream) : m_stream(stream) {}
  StreamSession(const StreamSession&) = delete;
  StreamSession& operator=(const StreamSession&) = delete;
  ~StreamSession() { m_stream.EndSession(); }

 private:
  LiveStream& m_stream;
};

std::string TextOf(const std::exception& error) {
  if (const auto* const failure = dynamic_cast<const Failure*>(&error)) {
    return failure->what();
  }
  if (dynamic_cast<const std::bad_alloc*>(&error) != nullptr) {
    return "out of memory; close other programs or choose a smaller size";
  }
  return std::string("unexpected failure: ") + error.what() + "; use -v for details";
}

bool IsEarlyEnd(const std::exception& error) {
  const auto* const failure = dynamic_cast<const Failure*>(&error);
  return failure != nullptr && failure->Code() == ExitCode::kEndedEarly;
}

bool AreSame(const LibraryResult& a, const LibraryResult& b) {
  return a.failure == b.failure && a.camera.has_value() == b.camera.has_value() &&
         (!a.camera || (a.camera->id == b.camera->id && a.camera->sizes == b.camera->sizes &&
                        a.camera->rates == b.camera->rates));
}

}  // namespace

CameraSession::CameraSession(const CommandContext& context, LiveStream& stream,
                             std::function<void()> onChange, const CameraSessionTimes& times)
    : m_context(context), m_stream(stream), m_onChange(std::move(onChange)), m_times(times), m_thread([this] {
        Run();
      }) {}

CameraSession::~CameraSession() {
  {
    const std::lock_guard lock(m_mutex);
    m_isStopping = true;
  }
  m_isControlled.notify_all();
  m_thread.join();
}

void CameraSession::SetWanted(bool isWanted) {
  {
    const std::lock_guard lock(m_mutex);
    if (m_isWanted && !isWanted) {
      m_unwantedSince = Clock::now();
    }
    m_isWanted = isWanted;
  }
  m_isControlled.notify_all();
}

void CameraSession::Change(const Size& size, std::uint32_t fps) {
  {
    const std::lock_guard lock(m_mutex);
    m_change = {size, fps};
  }
  m_isControlled.notify_all();
}

CameraState CameraSession::State() const {
  const std::lock_guard lock(m_mutex);
  return m_state;
}

void CameraSession::Run() {
  std::optional<SystemSession> session;
  for (bool isEnding = false; !isEnding;) {
    try {
      if (!session) {
        session.emplace();
      }
      if (WaitUntilWanted()) {
        RunWhileWanted();
      } else {
        isEnding = true;
      }
    } catch (const std::exception& error) {
      // Also of showing another failure: out of memory. The viewers shall not need another program.
      isEnding = !WaitAfter(error);
    }
  }
}

// Returns false if the thread is to end.
bool CameraSession::WaitAfter(const std::exception& error) noexcept {
  try {
    ShowFailure(TextOf(error));
  } catch (const std::exception&) {
    // Out of memory.
    m_onChange();
  }
  std::unique_lock lock(m_mutex);
  return !m_isControlled.wait_for(lock, m_times.retryInterval, [this] { return m_isStopping; });
}

// Returns false if the thread is to end.
bool CameraSession::WaitUntilWanted() {
  for (;;) {
    {
      std::unique_lock lock(m_mutex);
      m_isControlled.wait(lock, [this] { return m_isStopping || m_isWanted || m_change; });
      if (m_isStopping || !m_change) {
        return !m_isStopping;
      }
    }
    TakeChange();
    ShowRequest();
  }
}

void CameraSession::RunWhileWanted() {
  Update([](CameraState& state) { state.phase = CameraPhase::kOpening; });
  for (;;) {
    bool retriesAtOnce = false;
    try {
      FindCamera();
      RunSessions();
      break;
    } catch (const std::exception& error) {
      ShowFailure(TextOf(error));
      // The stream has ended early: finds out whether the camera is still present.
      retriesAtOnce = IsEarlyEnd(error);
    }
    if (retriesAtOnce ? !IsStillWanted() : !WaitForRetry()) {
      break;
    }
  }
  Update([this](CameraState& state) {
    state.phase = CameraPhase::kClosed;
    state.error = m_changeError;
  });
}

// Returns false if there is to be no other attempt.
bool CameraSession::WaitForRetry() {
  {
    std::unique_lock lock(m_mutex);
    m_isControlled.wait_for(lock, m_times.retryInterval,
                            [this] { return m_isStopping || !m_isWanted || m_change; });
    if (m_isStopping || !m_isWanted) {
      return false;
    }
  }
  // A change that stayed pending would end the next wait at once.
  if (TakeChange()) {
    ShowRequest();
  }
  return true;
}

// Determines m_request. Throws Failure if there is no usable camera.
void CameraSession::FindCamera() {
  LibraryResult result = QueryLibrary(m_context.camera);
  if (!m_searchResult || !AreSame(result, m_searchResult->result) ||
      Clock::now() - m_searchResult->time >= m_times.inventoryInterval) {
    m_searchResult.reset();
    m_searchResult = Search(std::move(result));
  }
  if (m_searchResult->failure) {
    throw Failure(*m_searchResult->failure);
  }
  ChooseCameraRequest(*m_searchResult->result.camera);
}

// Shows why there is a camera or none.
CameraSession::SearchResult CameraSession::Search(LibraryResult result) {
  const auto now = Clock::now();
  const DeviceInventory inventory = GetMatchingInventory(m_context.camera, result);
  const DoctorReport report = MakeDoctorReport(inventory, result);
  ShowReport(result, inventory, report);
  if (report.code == ExitCode::kOk) {
    return {std::move(result), now, std::nullopt};
  }
  std::string text = result.failure.empty() ? report.conclusion : result.failure;
  if (report.code == ExitCode::kNoCamera) {
    text = m_lossError.empty() ? "no built-in camera was found; it is opened as soon as there is one"
                               : m_lossError;
  }
  return {std::move(result), now, Failure(report.code, text)};
}

void CameraSession::ShowReport(const LibraryResult& result, const DeviceInventory& inventory,
                               const DoctorReport& report) {
  const VideoNodeInfo* const selected = report.hasSelected ? FindSelected(inventory) : nullptr;
  Update([&](CameraState& state) {
    if (report.code == ExitCode::kOk) {
      state.capabilities = *result.camera;
    }
    state.cameraName.clear();
    state.conclusion = report.conclusion;
    state.advice = report.advice;
    if (selected != nullptr) {
      state.cameraName = SanitizeForTerminal(selected->name.empty() ? selected->node : selected->name);
      if (report.code == ExitCode::kOk) {
        state.conclusion = "Selected: " + SelectionReason(*selected);
        // For an offered camera, it only tells how to measure it.
        state.advice.clear();
      }
    }
  });
}

void CameraSession::ChooseCameraRequest(const Capabilities& camera) {
  const bool isOffered =
      m_request && std::find(camera.sizes.begin(), camera.sizes.end(), m_request->size) != camera.sizes.end();
  // A change to a size that is not offered is tried, so that its error is shown.
  if (!m_request || m_defaultPlan || !(isOffered || m_isChanging)) {
    m_defaultPlan = PlanRequests(m_context.options, camera);
    m_request = m_defaultPlan->Request(m_defaultPlan->sizes.sizes.front());
  }
  m_request->id = camera.id;
  if (m_workingRequest) {
    m_workingRequest->id = camera.id;
  }
}

// Returns once the camera is not wanted any more. Throws Failure if it cannot be opened or is lost.
void CameraSession::RunSessions() {
  for (;;) {
    TakeChange();
    ShowRequest();
    try {
      if (RunSession() == SessionEnd::kNotWanted) {
        return;
      }
    } catch (const std::exception& error) {
      if ((m_isChanging && IsCameraLost(error)) || !std::exchange(m_isChanging, false)) {
        throw;
      }
      m_changeError = TextOf(error);
      m_request = m_workingRequest;
      if (!m_request) {
        throw;
      }
    }
  }
}

// Whether the camera was disconnected during a session that has failed. That says nothing about a change,
// which is tried again once the camera is back.
bool CameraSession::IsCameraLost(const std::exception& failure) const {
  // What the platform reports is about the latest stream, which an open request that fails does not have.
  return (IsEarlyEnd(failure) && IsCameraDisconnected()) || !QueryLibrary(m_context.camera).HasSelected();
}

CameraSession::SessionEnd CameraSession::RunSession() {
  // Nothing here uses the record, which would grow with every session.
  Camera::ClearCallbacks();
  const StreamSession session(m_stream);
  // Packets of sizes that are only tried are not published: a new size would end the viewers' MP4 streams.
  StartedCamera camera(m_context, m_defaultPlan.value_or(PlanOnly(*m_request)),
                       [this] { return IsInterrupted(); });
  m_request = camera.Request();
  if (camera.IsBestSize() && m_defaultPlan) {
    // If no size is fast, the measured rate says so.
    const bool isPreferred = m_request->size == m_defaultPlan->sizes.sizes.front();
    m_sizeNotice = isPreferred ? std::string() : camera.SizeMessage();
    m_defaultPlan.reset();
  }
  const SessionEnd end = Forward(camera);
  camera.Close();
  // The packets that arrived while the camera was being closed.
  Packet packet;
  while (camera.IsBestSize() && camera.Queue().Pop(packet, kNoWait) == PopResult::kPacket) {
    m_stream.Publish(std::move(packet));
  }
  return end;
}

// Publishes the packets until the session ends.
CameraSession::SessionEnd CameraSession::Forward(const StartedCamera& camera) {
  PacketQueue& queue = camera.Queue();
  const auto begin = camera.OpenedAt();
  bool hasPackets = false;
  int idlePolls = 0;
  Packet packet;
  for (;;) {
    if (!IsStillWanted()) {
      return SessionEnd::kNotWanted;
    }
    if (TakeChange()) {
      return SessionEnd::kChanged;
    }
    const bool isIdle = queue.Pop(packet, kPollInterval) != PopResult::kPacket;
    idlePolls = isIdle ? idlePolls + 1 : 0;
    if (!isIdle) {
      if (!std::exchange(hasPackets, true)) {
        NoteFirstPacket();
      }
      m_stream.Publish(std::move(packet));
    }
    if (queue.HasLoss()) {
      throw Failure(ExitCode::kUnexpected,
                    "out of memory for a packet; close other programs or choose a smaller size");
    }
    const auto now = Clock::now();
    const StreamEnd end = DetermineStreamEnd(
        {.idle = std::min(now - begin, queue.IdleTime(now)), .isDisconnected = IsCameraDisconnected()},
        kNoStreamLimit, m_context.timeouts);
    const bool hasEnded =
        end == StreamEnd::kNoPackets ? idlePolls >= kMinIdlePolls : isIdle && end != StreamEnd::kNone;
    if (hasEnded) {
      m_lossError = CauseText(end, m_context.timeouts) + "; it is opened again as soon as possible";
      throw Failure(ExitCode::kEndedEarly, m_lossError);
    }
  }
}

void CameraSession::NoteFirstPacket() {
  m_workingRequest = m_request;
  m_lossError.clear();
  if (std::exchange(m_isChanging, false)) {
    m_changeError.clear();
    m_sizeNotice.clear();
  }
  Update([this](CameraState& state) {
    state.phase = CameraPhase::kOpen;
    state.request = m_request;
    state.error = m_changeError;
    state.notice = m_sizeNotice;
  });
}

// Returns true if the camera has to be reopened.
bool CameraSession::TakeChange() {
  std::optional<SizeAndRate> change;
  {
    const std::lock_guard lock(m_mutex);
    change = std::exchange(m_change, std::nullopt);
  }
  if (!change) {
    return false;
  }
  m_defaultPlan.reset();
  if (m_request && m_request->size == change->size && m_request->fps == change->fps) {
    m_changeError.clear();
    m_sizeNotice.clear();
    Update([](CameraState& state) {
      state.notice.clear();
      if (state.phase != CameraPhase::kFailed) {
        state.error.clear();
      }
    });
    return false;
  }
  m_request = CameraRequest{m_request ? m_request->id : std::string(), change->size, change->fps};
  m_isChanging = true;
  return true;
}

bool CameraSession::IsStillWanted() {
  const std::lock_guard lock(m_mutex);
  return !m_isStopping && (m_isWanted || Clock::now() - m_unwantedSince < m_times.closeDelay);
}

// Whether the session has to end.
bool CameraSession::IsInterrupted() {
  if (!IsStillWanted()) {
    return true;
  }
  const std::lock_guard lock(m_mutex);
  return m_change.has_value();
}

void CameraSession::ShowFailure(const std::string& error) {
  Update([&](CameraState& state) {
    state.phase = CameraPhase::kFailed;
    state.error = error;
  });
}

// While the camera cannot be opened, the failure stays in the state until packets arrive.
void CameraSession::ShowRequest() {
  Update([this](CameraState& state) {
    state.request = m_request;
    state.notice = m_isChanging ? std::string() : m_sizeNotice;
    if (state.phase == CameraPhase::kOpen) {
      state.phase = CameraPhase::kOpening;
    }
    if (state.phase != CameraPhase::kFailed) {
      state.error = m_changeError;
    }
  });
}

template <typename Edit>
void CameraSession::Update(const Edit& edit) {
  {
    const std::lock_guard lock(m_mutex);
    edit(m_state);
  }
  m_onChange();
}

}  // namespace nuveqcam
