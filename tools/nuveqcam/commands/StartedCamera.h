// The open camera of a command, at the requested or at the default size.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "commands/Commands.h"

namespace nuveqcam {

class StartedCamera {
 public:
  // Opens the camera at the best size of the plan. If the plan has several, the first packets are judged
  // while they wait in the queue, so that a size that is kept costs no time; a change of the size is reported
  // on err. Throws Failure (kCannotOpen).
  //
  // The judgement stops if `isInterrupted`, which is called every few milliseconds, returns true, or if the
  // stream ends. That is left to the caller, who notices it at the queue.
  StartedCamera(const CommandContext& context, const CameraPlan& plan,
                const std::function<bool()>& isInterrupted);
  StartedCamera(const StartedCamera&) = delete;
  StartedCamera& operator=(const StartedCamera&) = delete;
  // Closes the camera.
  ~StartedCamera() = default;

  // No packet arrives after it returns. The queue remains.
  void Close() { m_open.reset(); }

  PacketQueue& Queue() const { return *m_queue; }
  const CameraRequest& Request() const { return m_request; }
  // False if the judgement was stopped before the best size was found.
  bool IsBestSize() const { return m_isBestSize; }
  // What was reported about the size: human-readable. Empty: the first one of the plan was
  // not judged, or is fast enough.
  const std::string& SizeMessage() const { return m_sizeMessage; }
  // The times of the open request and of its return.
  Clock::time_point RequestedAt() const { return m_requestedAt; }
  Clock::time_point OpenedAt() const { return m_openedAt; }

 private:
  void Open(const CameraRequest& request);
  void Search(const CameraPlan& plan, const std::function<bool()>& isInterrupted);
  // kUndecided if the stream has ended or is to end.
  StartRate Assess(double wantedFps, StartLook look, const std::function<bool()>& isInterrupted) const;

  const CommandContext& m_context;
  std::unique_ptr<PacketQueue> m_queue;  // outlives the open camera
  std::unique_ptr<OpenCamera> m_open;
  CameraRequest m_request;
  bool m_isBestSize = false;
  std::string m_sizeMessage;
  Clock::time_point m_requestedAt;
  Clock::time_point m_openedAt;
};

}  // namespace nuveqcam
