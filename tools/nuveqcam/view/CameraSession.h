// Runs the camera for the viewers on a thread of its own: opens it while somebody looks or records, changes
// its size and rate on request, and reopens it after a disconnect.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "commands/Commands.h"
#include "commands/DoctorReport.h"
#include "commands/StartedCamera.h"
#include "view/LiveStream.h"

namespace nuveqcam {

enum class CameraPhase { kClosed, kOpening, kOpen, kFailed };

struct CameraState {
  CameraPhase phase = CameraPhase::kClosed;
  Capabilities capabilities;             // of the last successful query
  std::optional<CameraRequest> request;  // the current or, while it is opened, the next one
  // Why the camera cannot be opened (kFailed), or why the last change of size and rate failed although the
  // earlier picture is shown (kOpen): human-readable, with the next step. Empty: no error.
  std::string error;
  // Why the size is not the default one, which is too slow: human-readable. Empty: it is, or was chosen.
  std::string notice;
  // Human-readable: the camera's name and why the library selected it, or why there is none (the words of
  // doctor).
  std::string cameraName;
  std::string conclusion;
  std::vector<std::string> advice;
};

struct CameraSessionTimes {
  // The camera is closed this long after it is no longer wanted, so that reloading the page does not restart
  // it.
  std::chrono::milliseconds closeDelay{2000};
  // From a failed attempt to open the camera to the next one.
  std::chrono::milliseconds retryInterval{1000};
  // The same result of the camera library is explained anew after this time: it takes longer than the query.
  std::chrono::milliseconds inventoryInterval{5000};
};

// All functions are thread-safe and do not wait for the camera.
class CameraSession {
 public:
  // `onChange` is called by the session's thread after the state has changed, also during the destructor. It
  // must return at once and must not throw. The context and the stream must outlive the object. No other
  // thread may use the context's camera.
  CameraSession(const CommandContext& context, LiveStream& stream, std::function<void()> onChange,
                const CameraSessionTimes& times = {});
  CameraSession(const CameraSession&) = delete;
  CameraSession& operator=(const CameraSession&) = delete;
  // Closes the camera; waits until it is closed.
  ~CameraSession();

  // Whether the camera is to run.
  void SetWanted(bool isWanted);
  // Reopens the camera with another size and rate. If that fails, the earlier request is opened again, and
  // CameraState::error says why until the next change that succeeds.
  void Change(const Size& size, std::uint32_t fps);
  CameraState State() const;

 private:
  enum class SessionEnd { kNotWanted, kChanged };

  struct SizeAndRate {
    Size size;
    std::uint32_t fps = 0;
  };

  // The result of a search for the camera.
  struct SearchResult {
    LibraryResult result;
    Clock::time_point time;
    std::optional<Failure> failure;  // why there is no usable camera
  };

  // The following are called by the thread only.
  void Run();
  bool WaitAfter(const std::exception& error) noexcept;
  bool WaitUntilWanted();
  void RunWhileWanted();
  bool WaitForRetry();
  void FindCamera();
  SearchResult Search(LibraryResult result);
  void ShowReport(const LibraryResult& result, const DeviceInventory& inventory, const DoctorReport& report);
  void ChooseCameraRequest(const Capabilities& camera);
  void RunSessions();
  bool IsCameraLost(const std::exception& failure) const;
  SessionEnd RunSession();
  SessionEnd Forward(const StartedCamera& camera);
  void NoteFirstPacket();
  bool TakeChange();
  bool IsStillWanted();
  bool IsInterrupted();
  void ShowFailure(const std::string& error);
  void ShowRequest();
  template <typename Edit>
  void Update(const Edit& edit);

  const CommandContext& m_context;
  LiveStream& m_stream;
  const std::function<void()> m_onChange;
  const CameraSessionTimes m_times;

  mutable std::mutex m_mutex;
  std::condition_variable m_isControlled;
  // Protected by m_mutex.
  CameraState m_state;
  bool m_isStopping = false;
  bool m_isWanted = false;
  Clock::time_point m_unwantedSince;
  std::optional<SizeAndRate> m_change;

  // Used by the thread only.
  std::optional<CameraRequest> m_request;
  std::optional<CameraPlan> m_defaultPlan;        // until the default size has been found among its sizes
  std::optional<CameraRequest> m_workingRequest;  // the latest one with which packets have arrived
  bool m_isChanging = false;                      // m_request is a change that has not succeeded yet
  std::string m_changeError;                      // of the latest change
  std::string m_sizeNotice;                       // about the default size
  std::string m_lossError;  // why the latest session ended early; empty while packets arrive
  std::optional<SearchResult> m_searchResult;

  std::thread m_thread;
};

}  // namespace nuveqcam
