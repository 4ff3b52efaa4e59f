// Answers the requests to `nuveqcam view`: the page, the streams, pictures, recordings and the camera's
// settings.
#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "recording/PacketQueue.h"
#include "view/AccessControl.h"
#include "view/ArrivalWindow.h"
#include "view/BackgroundThread.h"
#include "view/CameraSession.h"
#include "view/Http.h"
#include "view/LiveStream.h"
#include "view/StreamBodies.h"
#include "view/ViewApi.h"
#include "view/ViewRecording.h"

namespace nuveqcam {

// What the service controls. The functions must not wait, unless noted otherwise.
struct ViewBackend {
  LiveStream& stream;
  std::function<CameraState()> cameraState;
  std::function<void(const Size&, std::uint32_t)> changeCamera;
  std::function<void(bool)> setCameraWanted;
  // Begins a recording at a nominal frame rate. Called by another thread; may wait. Throws Failure.
  std::function<std::unique_ptr<ViewRecording>(std::uint32_t)> startRecording;
  // Calls a task on the server's thread. Thread-safe.
  std::function<void(std::function<void()>)> post;
  bool keepsCameraOpen = false;
};

// Used by the server's thread only. Once it is destroyed, neither posted tasks may run nor may bodies of
// responses be asked for further parts.
class ViewService {
 public:
  ViewService(AccessControl access, ViewBackend backend);
  ViewService(const ViewService&) = delete;
  ViewService& operator=(const ViewService&) = delete;
  // Waits for the task in the background, which ends early.
  ~ViewService();

  void Handle(const HttpRequest& request, const HttpReply& reply);
  // The camera's state has changed.
  void OnCameraChange();
  // Call it several times a second.
  void OnTick(Clock::time_point now);
  // Call it once the server has stopped. Completes a recording that is running, and moves one that was not
  // downloaded to the folder (empty: the current one); may wait. Returns what to tell the user; empty:
  // nothing.
  std::string SaveRecording(const std::filesystem::path& folder);

 private:
  struct Route;
  struct PictureRequest {
    HttpReply reply;
    Clock::time_point deadline;      // moves while the camera is being opened
    Clock::time_point lastDeadline;  // does not
  };
  class PictureInProgress;
  enum class RecordingPhase { kNone, kStarting, kRunning, kFinishing, kFinished };

  static const Route* FindRoute(const std::string& resource);

  void SendTime(const HttpRequest& request, const HttpReply& reply);
  void SendState(const HttpRequest& request, const HttpReply& reply);
  void SendRecords(const HttpRequest& request, const HttpReply& reply);
  void SendAnnexB(const HttpRequest& request, const HttpReply& reply);
  void SendMp4(const HttpRequest& request, const HttpReply& reply);
  void SendPicture(const HttpRequest& request, const HttpReply& reply);
  void SendRecording(const HttpRequest& request, const HttpReply& reply);
  void ChangeCamera(const HttpRequest& request, const HttpReply& reply);
  void Record(const HttpRequest& request, const HttpReply& reply);

  std::string StateText(std::uint64_t skippedFrames) const;
  RecordingState CurrentRecording() const;
  void BroadcastState();
  void UpdateCamera();

  void TakePicture(Clock::time_point now);
  void DropExpiredPictures(Clock::time_point now);
  HttpResponse PictureResponse(const std::vector<LivePacketPtr>& group) const;
  std::string NoPictureText() const;

  void StartRecording(const HttpReply& reply);
  void FinishRecording();
  void PostResult(const std::function<void()>& task) const;
  void OnRecordingFinished(const std::string& error);
  void SetRecordingPhase(RecordingPhase phase);

  AccessControl m_access;
  const ViewBackend m_backend;
  const ArrivalWindow m_arrivals;
  std::atomic<bool> m_isCancelled = false;

  const ViewerCount m_viewers = std::make_shared<std::size_t>(0);
  std::size_t m_announcedViewers = 0;
  std::vector<std::weak_ptr<RecordBody>> m_records;
  Clock::time_point m_nextState;  // when the state is sent although it has not changed
  bool m_isCameraWanted = false;

  std::vector<PictureRequest> m_pictureRequests;
  std::atomic<bool> m_isTakingPicture = false;

  RecordingPhase m_recordingPhase = RecordingPhase::kNone;
  std::shared_ptr<ViewRecording> m_recording;  // null: none, or being started
  bool m_isRecordingStopped = false;           // by a request
  std::string m_recordingError;                // of starting or finishing it
  std::string m_downloadName;
  std::vector<HttpReply> m_finishReplies;

  BackgroundThread m_background;  // destroyed first
};

}  // namespace nuveqcam
