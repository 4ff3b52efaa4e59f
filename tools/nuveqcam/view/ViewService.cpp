#include "view/ViewService.h"

#include <algorithm>
#include <array>
#include <ctime>
#include <exception>
#include <iomanip>
#include <locale>
#include <new>
#include <sstream>
#include <thread>
#include <utility>

#include "cli/Failure.h"
#include "cli/Text.h"
#include "picture/Picture.h"
#include "picture/Png.h"
#include "view/PageFiles.h"

namespace nuveqcam {
namespace {

constexpr std::chrono::seconds kStateInterval{1};
// For the first picture, from when the camera is open.
constexpr std::chrono::seconds kPictureTimeout{5};
// The same including the time in which it is opened.
constexpr std::chrono::seconds kMaxPictureTimeout{20};
// From a failure for lack of memory to the next attempt.
constexpr std::chrono::milliseconds kMemoryRetryInterval{100};
constexpr std::uint32_t kDefaultFps = 30;

HttpField ContentType(const char* type) { return {"Content-Type", type}; }

HttpResponse TextResponse(unsigned status, const char* type, const std::string& text) {
  HttpResponse response;
  response.status = status;
  response.fields = {ContentType(type)};
  response.body.head.assign(text.begin(), text.end());
  return response;
}

HttpResponse JsonResponse(unsigned status, const std::string& json) {
  return TextResponse(status, "application/json", json);
}

HttpResponse ErrorResponse(unsigned status, const std::string& text) {
  return JsonResponse(status, ErrorJson(text));
}

HttpResponse StreamResponse(const char* type, std::shared_ptr<BodySource> source) {
  HttpResponse response;
  response.fields = {ContentType(type)};
  response.source = std::move(source);
  return response;
}

const char* TypeOf(std::string_view fileName) {
  constexpr std::array<std::pair<std::string_view, const char*>, 4> kTypes{
      {{".html", "text/html; charset=utf-8"},
       {".js", "text/javascript; charset=utf-8"},
       {".css", "text/css; charset=utf-8"},
       {".svg", "image/svg+xml"}}};
  const auto found =
      std::ranges::find_if(kTypes, [&](const auto& type) { return fileName.ends_with(type.first); });
  return found == kTypes.end() ? "application/octet-stream" : found->second;
}

// The page itself has an empty name in addresses.
const PageFile* FindPageFile(std::string_view resource) {
  const std::string_view name = resource.empty() ? "index.html" : resource;
  const auto files = PageFiles();
  const auto found = std::ranges::find(files, name, &PageFile::name);
  return found == files.end() || resource == "index.html" ? nullptr : &*found;
}

HttpResponse FileResponse(const PageFile& file) {
  HttpResponse response;
  response.fields = {ContentType(TypeOf(file.name))};
  response.body.bytes = file.content;
  return response;
}

HttpResponse DeniedResponse(unsigned status) {
  HttpResponse response;
  if (status == HttpStatus::kNotFound || status == HttpStatus::kMisdirectedRequest) {
    // Does not reveal that the token is missing, nor to other host names which program this is.
    response.status = status;
  } else {
    response = ErrorResponse(
        status, "requests from other sites are rejected; open the address that nuveqcam has printed");
  }
  return response;
}

HttpResponse WrongMethodResponse(const char* allowed) {
  HttpResponse response =
      ErrorResponse(HttpStatus::kMethodNotAllowed, std::string("use ") + allowed + " for this address");
  response.fields.push_back({"Allow", allowed});
  return response;
}

HttpResponse PngResponse(std::vector<std::uint8_t> png) {
  const auto owner = std::make_shared<const std::vector<std::uint8_t>>(std::move(png));
  HttpResponse response;
  response.fields = {ContentType("image/png")};
  response.body.bytes = *owner;
  response.body.owner = owner;
  return response;
}

HttpResponse RedirectResponse(const std::string& path) {
  HttpResponse response;
  response.status = HttpStatus::kSeeOther;
  response.fields = {{"Location", path}};
  return response;
}

// "camera-20260102-030405.mp4", in local time.
std::string DownloadName() {
  const std::time_t now = std::time(nullptr);
  std::ostringstream name;
  name.imbue(std::locale::classic());
  // Only this thread calls it.
  name << std::put_time(std::localtime(&now), "camera-%Y%m%d-%H%M%S.mp4");  // NOLINT(concurrency-mt-unsafe)
  return name.str();
}

}  // namespace

struct ViewService::Route {
  std::string_view resource;
  bool isPost;
  void (ViewService::*handle)(const HttpRequest&, const HttpReply&);
};

const ViewService::Route* ViewService::FindRoute(const std::string& resource) {
  static constexpr std::array kRoutes{Route{"time", false, &ViewService::SendTime},
                                      Route{"state", false, &ViewService::SendState},
                                      Route{"stream", false, &ViewService::SendRecords},
                                      Route{"stream.h264", false, &ViewService::SendAnnexB},
                                      Route{"stream.mp4", false, &ViewService::SendMp4},
                                      Route{"snapshot.png", false, &ViewService::SendPicture},
                                      Route{kRecordingName, false, &ViewService::SendRecording},
                                      Route{"camera", true, &ViewService::ChangeCamera},
                                      Route{"record", true, &ViewService::Record}};
  const auto found = std::ranges::find(kRoutes, resource, &Route::resource);
  return found == kRoutes.end() ? nullptr : &*found;
}

ViewService::ViewService(AccessControl access, ViewBackend backend)
    : m_access(std::move(access)), m_backend(std::move(backend)), m_arrivals(m_backend.stream) {
  UpdateCamera();
}

ViewService::~ViewService() { m_isCancelled = true; }

void ViewService::Handle(const HttpRequest& request, const HttpReply& reply) {
  if (m_access.Enter(request)) {
    reply(RedirectResponse(m_access.Path()));
    return;
  }
  const AccessDecision decision = m_access.Check(request);
  if (decision.status != HttpStatus::kOk) {
    HttpResponse response = decision.status == HttpStatus::kMethodNotAllowed
                                ? WrongMethodResponse("GET, HEAD, POST")
                                : DeniedResponse(decision.status);
    response.isDenied = true;
    reply(std::move(response));
    return;
  }
  const PageFile* const file = FindPageFile(decision.resource);
  const Route* const route = file != nullptr ? nullptr : FindRoute(decision.resource);
  if (file == nullptr && route == nullptr) {
    reply(ErrorResponse(HttpStatus::kNotFound,
                        "there is nothing at this address; open the address that nuveqcam has printed"));
    return;
  }
  const bool isPost = route != nullptr && route->isPost;
  if (isPost != (request.method == "POST")) {
    reply(WrongMethodResponse(isPost ? "POST" : "GET, HEAD"));
    return;
  }
  if (file != nullptr) {
    reply(FileResponse(*file));
    return;
  }
  (this->*route->handle)(request, reply);
}

void ViewService::OnCameraChange() { BroadcastState(); }

void ViewService::OnTick(Clock::time_point now) {
  if (m_recordingPhase == RecordingPhase::kRunning && !m_recording->Current().isRunning) {
    // The picture size has changed, the camera was closed, or the file cannot be written.
    FinishRecording();
  }
  TakePicture(now);
  UpdateCamera();
  if (*m_viewers != m_announcedViewers || now >= m_nextState) {
    m_announcedViewers = *m_viewers;
    m_nextState = now + kStateInterval;
    BroadcastState();
  }
}

// State and streams

void ViewService::SendTime(const HttpRequest& /*request*/, const HttpReply& reply) {
  reply(TextResponse(HttpStatus::kOk, "text/plain", std::to_string(ToMicroseconds(Clock::now()))));
}

void ViewService::SendState(const HttpRequest& /*request*/, const HttpReply& reply) {
  reply(JsonResponse(HttpStatus::kOk, StateText(0)));
}

void ViewService::SendRecords(const HttpRequest& /*request*/, const HttpReply& reply) {
  auto body = std::make_shared<RecordBody>(
      m_backend.stream, m_viewers, [this](std::uint64_t skippedFrames) { return StateText(skippedFrames); });
  std::erase_if(m_records, [](const auto& records) { return records.expired(); });
  m_records.push_back(body);
  reply(StreamResponse("application/octet-stream", std::move(body)));
}

void ViewService::SendAnnexB(const HttpRequest& /*request*/, const HttpReply& reply) {
  reply(StreamResponse("video/h264", std::make_shared<AnnexBBody>(m_backend.stream, m_viewers)));
}

void ViewService::SendMp4(const HttpRequest& /*request*/, const HttpReply& reply) {
  const auto request = m_backend.cameraState().request;
  reply(StreamResponse("video/mp4", std::make_shared<Mp4Body>(m_backend.stream, m_viewers,
                                                              request ? request->fps : kDefaultFps)));
}

std::string ViewService::StateText(std::uint64_t skippedFrames) const {
  const CameraState camera = m_backend.cameraState();
  RunningRate measured;
  if (camera.phase == CameraPhase::kOpen && camera.request) {
    measured = JudgeRunningRate(camera.capabilities, *camera.request, m_arrivals.Arrivals(), Clock::now());
  }
  return StateJson({camera, std::move(measured), CurrentRecording(), *m_viewers, skippedFrames});
}

void ViewService::BroadcastState() {
  for (const std::weak_ptr<RecordBody>& records : m_records) {
    if (const auto body = records.lock()) {
      body->SendState();
    }
  }
}

void ViewService::UpdateCamera() {
  const bool isWanted = m_backend.keepsCameraOpen || *m_viewers > 0 || !m_pictureRequests.empty() ||
                        m_recordingPhase == RecordingPhase::kStarting ||
                        m_recordingPhase == RecordingPhase::kRunning;
  if (isWanted != m_isCameraWanted) {
    m_isCameraWanted = isWanted;
    m_backend.setCameraWanted(isWanted);
  }
}

void ViewService::ChangeCamera(const HttpRequest& request, const HttpReply& reply) {
  const std::optional<CameraChange> change = ParseCameraChange(request.body);
  if (!change) {
    reply(ErrorResponse(HttpStatus::kBadRequest,
                        "the size or the rate is invalid; choose one of those that the camera offers"));
    return;
  }
  m_backend.changeCamera(change->size, change->fps);
  reply(JsonResponse(HttpStatus::kAccepted, "{}"));
}

// Pictures

void ViewService::SendPicture(const HttpRequest& /*request*/, const HttpReply& reply) {
  const auto now = Clock::now();
  m_pictureRequests.push_back({reply, now + kPictureTimeout, now + kMaxPictureTimeout});
  TakePicture(now);
  UpdateCamera();
}

// Ends with the object, also if memory runs out.
class ViewService::PictureInProgress {
 public:
  explicit PictureInProgress(std::atomic<bool>& isTaking) : m_isTaking(isTaking) { m_isTaking = true; }
  PictureInProgress(const PictureInProgress&) = delete;
  PictureInProgress& operator=(const PictureInProgress&) = delete;
  ~PictureInProgress() { m_isTaking = false; }

 private:
  std::atomic<bool>& m_isTaking;
};

// All waiting requests get the same picture. Further ones wait for the next: one is taken at a time.
void ViewService::TakePicture(Clock::time_point now) {
  if (m_pictureRequests.empty() || m_isTakingPicture) {
    return;
  }
  std::vector<LivePacketPtr> group = m_backend.stream.Group();
  if (group.empty()) {
    DropExpiredPictures(now);
    return;
  }
  // Shared, because tasks are copyable.
  const auto progress = std::make_shared<PictureInProgress>(m_isTakingPicture);
  m_background.Run(
      [this, progress, group = std::move(group), requests = std::exchange(m_pictureRequests, {})] {
        const HttpResponse response = PictureResponse(group);
        for (const PictureRequest& request : requests) {
          request.reply(response);
        }
      });
}

void ViewService::DropExpiredPictures(Clock::time_point now) {
  if (m_backend.cameraState().phase == CameraPhase::kOpening) {
    for (PictureRequest& request : m_pictureRequests) {
      request.deadline = std::min(now + kPictureTimeout, request.lastDeadline);
    }
  }
  std::erase_if(m_pictureRequests, [&](const PictureRequest& request) {
    const bool isExpired = now >= request.deadline;
    if (isExpired) {
      request.reply(ErrorResponse(HttpStatus::kUnavailable, NoPictureText()));
    }
    return isExpired;
  });
}

// Called in the background.
HttpResponse ViewService::PictureResponse(const std::vector<LivePacketPtr>& group) const {
  try {
    PictureDecoder decoder;
    bool hasPicture = false;
    for (const LivePacketPtr& packet : group) {
      if (m_isCancelled) {
        return ErrorResponse(HttpStatus::kUnavailable, "nuveqcam is ending; start it again");
      }
      hasPicture = decoder.Decode(packet->packet);
    }
    return hasPicture ? PngResponse(EncodePng(decoder.Current()))
                      : ErrorResponse(HttpStatus::kUnavailable, "the picture is damaged; try again");
  } catch (const Failure& failure) {
    return ErrorResponse(HttpStatus::kServerError, failure.what());
  } catch (const std::exception&) {
    return ErrorResponse(HttpStatus::kServerError, "out of memory for the picture; choose a smaller size");
  }
}

std::string ViewService::NoPictureText() const {
  const CameraState camera = m_backend.cameraState();
  return camera.error.empty() ? "the camera has not delivered a picture; try again, or see 'nuveqcam doctor'"
                              : camera.error;
}

// Recordings

void ViewService::Record(const HttpRequest& request, const HttpReply& reply) {
  const std::optional<bool> isStart = ParseRecordCommand(request.body);
  if (!isStart) {
    reply(ErrorResponse(HttpStatus::kBadRequest, R"(send {"record": true} or {"record": false})"));
  } else if (m_recordingPhase == RecordingPhase::kStarting) {
    reply(ErrorResponse(HttpStatus::kConflict, "the recording is being started; try again"));
  } else if (*isStart) {
    StartRecording(reply);
  } else if (m_recordingPhase == RecordingPhase::kNone) {
    reply(ErrorResponse(HttpStatus::kConflict, "no recording is running; start one first"));
  } else {
    m_finishReplies.push_back(reply);
    if (m_recordingPhase == RecordingPhase::kRunning) {
      m_isRecordingStopped = m_recording->Current().isRunning;
      FinishRecording();
    } else if (m_recordingPhase == RecordingPhase::kFinished) {
      OnRecordingFinished(m_recordingError);
    }
  }
}

void ViewService::StartRecording(const HttpReply& reply) {
  if (m_recordingPhase == RecordingPhase::kFinishing) {
    reply(ErrorResponse(HttpStatus::kConflict, "the recording is being completed; try again"));
    return;
  }
  if (m_recordingPhase == RecordingPhase::kRunning) {
    reply(ErrorResponse(HttpStatus::kConflict, "a recording is running; stop it first"));
    return;
  }
  const CameraState camera = m_backend.cameraState();
  if (camera.phase != CameraPhase::kOpen) {
    reply(
        ErrorResponse(HttpStatus::kConflict, "the camera is not running; record once its picture is shown"));
    return;
  }
  // An earlier recording is removed, once it is no longer being downloaded.
  m_recording.reset();
  m_recordingError.clear();
  m_isRecordingStopped = false;
  m_downloadName = DownloadName();
  SetRecordingPhase(RecordingPhase::kStarting);
  const std::uint32_t fps = camera.request ? camera.request->fps : kDefaultFps;
  m_background.Run([this, fps, reply] {
    std::shared_ptr<ViewRecording> recording;
    std::string error;
    try {
      // Its file may be large: removing it takes time.
      recording = DestroyInBackground(m_backend.startRecording(fps), m_background.Tasks());
    } catch (const std::exception& failure) {
      error = failure.what();
    }
    PostResult([this, recording, error, reply] {
      m_recording = recording;
      m_recordingError = error;
      SetRecordingPhase(recording ? RecordingPhase::kRunning : RecordingPhase::kNone);
      reply(recording ? JsonResponse(HttpStatus::kOk, RecordingJson(CurrentRecording()))
                      : ErrorResponse(HttpStatus::kServerError, error));
    });
  });
}

void ViewService::FinishRecording() {
  SetRecordingPhase(RecordingPhase::kFinishing);
  m_background.Run([this, recording = m_recording] {
    std::string error;
    try {
      recording->Finish();
    } catch (const std::exception& failure) {
      error = failure.what();
    }
    PostResult([this, error] {
      OnRecordingFinished(error);
      SetRecordingPhase(RecordingPhase::kFinished);
    });
  });
}

// Called in the background. A recording whose result gets lost could never be stopped.
void ViewService::PostResult(const std::function<void()>& task) const {
  while (!m_isCancelled) {
    try {
      m_backend.post(task);
      return;
    } catch (const std::bad_alloc&) {
      std::this_thread::sleep_for(kMemoryRetryInterval);
    }
  }
}

void ViewService::OnRecordingFinished(const std::string& error) {
  m_recordingError = error;
  m_recordingPhase = RecordingPhase::kFinished;
  const RecordingState recording = CurrentRecording();
  for (const HttpReply& reply : std::exchange(m_finishReplies, {})) {
    reply(recording.hasFile ? JsonResponse(HttpStatus::kOk, RecordingJson(recording))
                            : ErrorResponse(HttpStatus::kServerError, recording.error));
  }
}

void ViewService::SetRecordingPhase(RecordingPhase phase) {
  m_recordingPhase = phase;
  UpdateCamera();
  BroadcastState();
}

RecordingState ViewService::CurrentRecording() const {
  RecordingState state;
  state.error = m_recordingError;
  if (m_recording) {
    const ViewRecording::Stats stats = m_recording->Current();
    state.isRunning = m_recordingPhase == RecordingPhase::kRunning && stats.isRunning;
    state.isStopped = m_isRecordingStopped;
    state.frames = stats.frames;
    state.bytes = stats.bytes;
    state.seconds = stats.seconds;
    if (state.error.empty()) {
      state.error = stats.error;
    }
    // A recording that has ended early can be played up to there.
    state.hasFile = m_recordingPhase == RecordingPhase::kFinished && m_recordingError.empty();
  }
  return state;
}

void ViewService::SendRecording(const HttpRequest& /*request*/, const HttpReply& reply) {
  if (!CurrentRecording().hasFile) {
    reply(ErrorResponse(HttpStatus::kNotFound, "there is no recording; record first"));
    return;
  }
  HttpResponse response =
      StreamResponse("video/mp4", std::make_shared<RecordingBody>(m_recording, m_background.Tasks()));
  response.fields.push_back({"Content-Disposition", "attachment; filename=\"" + m_downloadName + "\""});
  reply(std::move(response));
}

std::string ViewService::SaveRecording(const std::filesystem::path& folder) {
  const bool hasFailed = m_recordingPhase == RecordingPhase::kFinished && !m_recordingError.empty();
  if (!m_recording || m_recording->IsDownloaded() || hasFailed) {
    return {};
  }
  try {
    // Waits, if it is being completed in the background.
    m_recording->Finish();
    const std::u8string path = m_recording->MoveTo(folder, m_downloadName).u8string();
    return "saved the recording that was not downloaded as " +
           SanitizeForTerminal(std::string(path.begin(), path.end()));
  } catch (const std::exception& failure) {
    return failure.what();
  }
}

}  // namespace nuveqcam
