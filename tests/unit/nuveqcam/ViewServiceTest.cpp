#include "view/ViewService.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <deque>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "EncodedKeyFrame.h"
#include "LivePackets.h"
#include "cli/Failure.h"
#include "support/ScopedTempFolder.h"
#include "support/WaitFor.h"
#include "view/PageFiles.h"

namespace nuveqcam {
namespace {

using ::testing::ElementsAre;
using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

const std::string kServiceToken = "abcdefghijklmnopqrstuvwxyz-_0123";
const std::string kServiceEntryToken = "0123abcdefghijklmnopqrstuvwxyz-_";

// A response with its body, as far as it is available.
struct Received {
  unsigned status = 0;
  std::string type;
  std::vector<HttpField> fields;
  std::string body;
};

std::string ToText(const BodyPart& part) {
  std::string text(part.head.begin(), part.head.end());
  text.append(part.bytes.begin(), part.bytes.end());
  return text;
}

std::vector<std::string> NamesIn(const std::filesystem::path& folder) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    names.push_back(entry.path().filename().string());
  }
  return names;
}

std::uint64_t NumberIn(const std::string& bytes, std::size_t at, int count) {
  std::uint64_t number = 0;
  for (int i = count; i > 0; --i) {
    number = number << 8U | static_cast<std::uint8_t>(bytes.at(at + static_cast<std::size_t>(i) - 1));
  }
  return number;
}

// The service with a camera that the test plays, and without a server: the test calls what is posted.
class Service : public ::testing::Test {
 protected:
  ~Service() override {
    // As at the end of the server, posted calls that are left are not made.
    service.reset();
  }

  void Start(bool keepsCameraOpen = false) {
    service.emplace(AccessControl(kServiceToken, 80, kServiceEntryToken),
                    ViewBackend{.stream = stream,
                                .cameraState = [this] { return camera; },
                                .changeCamera =
                                    [this](const Size& size, std::uint32_t fps) {
                                      changes.push_back({size, fps});
                                    },
                                .setCameraWanted = [this](bool isWanted) { wanted.push_back(isWanted); },
                                .startRecording =
                                    [this](std::uint32_t fps) {
                                      recordedFps = fps;
                                      if (!recordingError.empty()) {
                                        throw Failure(ExitCode::kCannotWrite, recordingError);
                                      }
                                      return std::make_unique<ViewRecording>(stream, fps, signals);
                                    },
                                .post =
                                    [this](std::function<void()> task) {
                                      const std::lock_guard lock(mutex);
                                      posted.push_back(std::move(task));
                                    },
                                .keepsCameraOpen = keepsCameraOpen});
  }

  static HttpRequest RequestFor(const std::string& resource, const std::string& method = "GET") {
    HttpRequest request;
    request.method = method;
    request.target = "/" + kServiceToken + "/" + resource;
    request.fields = {{"Host", "localhost"}, {"X-Nuveqcam", "1"}, {"Content-Type", "application/json"}};
    return request;
  }

  // Handles the request, and returns the place where its response will be.
  std::shared_ptr<std::optional<HttpResponse>> Handle(const HttpRequest& request) {
    auto response = std::make_shared<std::optional<HttpResponse>>();
    service->Handle(request, [this, response](const HttpResponse& given) {
      const std::lock_guard lock(mutex);
      EXPECT_FALSE(*response) << "two replies to one request";
      *response = given;
    });
    return response;
  }
  void Tick(Clock::duration elapsed = Clock::duration::zero()) {
    now += elapsed;
    service->OnTick(now);
  }
  // Makes the posted calls, as the server's thread would.
  void RunPosted() {
    for (;;) {
      std::function<void()> task;
      {
        const std::lock_guard lock(mutex);
        if (posted.empty()) {
          return;
        }
        task = std::move(posted.front());
        posted.pop_front();
      }
      task();
    }
  }
  bool WaitForPosted(const std::function<bool()>& condition) {
    return WaitFor([&] {
      RunPosted();
      const std::lock_guard lock(mutex);
      return condition();
    });
  }
  HttpResponse Await(const std::shared_ptr<std::optional<HttpResponse>>& response) {
    EXPECT_TRUE(WaitForPosted([&] { return response->has_value(); }));
    return response->value_or(HttpResponse{});
  }
  Received Request(const HttpRequest& request) {
    const HttpResponse response = Await(Handle(request));
    Received received{response.status, {}, response.fields, ToText(response.body)};
    for (const HttpField& field : response.fields) {
      received.type = field.name == "Content-Type" ? field.value : received.type;
    }
    return received;
  }
  Received Get(const std::string& resource) { return Request(RequestFor(resource)); }
  Received Post(const std::string& resource, const std::string& body) {
    HttpRequest request = RequestFor(resource, "POST");
    request.body = body;
    return Request(request);
  }
  // Opens a stream as the server does.
  std::shared_ptr<BodySource> Open(const std::string& resource) {
    const HttpResponse response = Await(Handle(RequestFor(resource)));
    EXPECT_EQ(response.status, 200);
    EXPECT_NE(response.source, nullptr);
    response.source->Start([] {});
    Tick();
    return response.source;
  }
  // The next part of a stream; empty if there is none.
  static std::string Next(BodySource& source) {
    BodyPart part;
    return source.Next(part) == BodyState::kPart ? ToText(part) : "";
  }

  // The whole body of known size.
  static std::string ReadAll(BodySource& source) {
    std::string all;
    source.Start([] {});
    EXPECT_TRUE(WaitFor([&] {
      for (;;) {
        BodyPart part;
        const BodyState state = source.Next(part);
        if (state != BodyState::kPart) {
          return state == BodyState::kEnd;
        }
        all += ToText(part);
      }
    }));
    EXPECT_EQ(all.size(), source.Size());
    return all;
  }
  std::string Download() {
    const HttpResponse response = Await(Handle(RequestFor("recording.mp4")));
    EXPECT_EQ(response.status, 200);
    return ReadAll(*response.source);
  }

  void OpenCamera() {
    camera.phase = CameraPhase::kOpen;
    camera.request = CameraRequest{"0", {64, 48}, 15};
  }
  void StartRecording() {
    OpenCamera();
    stream.Publish(EncodeKeyFrame(64, 48));
    EXPECT_EQ(Post("record", R"({"record":true})").status, 200);
  }

  StopSignals signals;
  LiveStream stream;
  CameraState camera;
  std::vector<CameraChange> changes;
  std::vector<bool> wanted;
  std::atomic<std::uint32_t> recordedFps = 0;
  std::string recordingError;
  std::mutex mutex;
  std::deque<std::function<void()>> posted;  // guarded by mutex
  Clock::time_point now = Clock::now();
  std::optional<ViewService> service;
};

TEST_F(Service, SendsThePageAndItsFiles) {
  Start();
  EXPECT_EQ(Get("").type, "text/html; charset=utf-8");
  EXPECT_EQ(Get("view.js").type, "text/javascript; charset=utf-8");
  EXPECT_EQ(Get("view.css").type, "text/css; charset=utf-8");
  EXPECT_EQ(Get("icon.svg").type, "image/svg+xml");
  EXPECT_THAT(Get("").body, StartsWith("<!doctype html>"));
  for (const PageFile& file : PageFiles()) {
    const std::string name = file.name == "index.html" ? "" : std::string(file.name);
    EXPECT_EQ(Get(name).body, std::string(file.content.begin(), file.content.end()));
  }
}

TEST_F(Service, RequestWithoutTheTokenLearnsNothing) {
  Start();
  HttpRequest request = RequestFor("state");
  request.target = "/state";
  const Received received = Request(request);
  EXPECT_EQ(received.status, 404);
  EXPECT_THAT(received.fields, IsEmpty());
  EXPECT_EQ(received.body, "");
  request = RequestFor("state");
  request.fields[0].value = "example.org";
  const Received rebound = Request(request);
  EXPECT_EQ(rebound.status, 421);
  EXPECT_THAT(rebound.fields, IsEmpty());
  EXPECT_EQ(rebound.body, "");
}

TEST_F(Service, EntryAddressLeadsToThePageOnce) {
  Start();
  HttpRequest request = RequestFor("");
  request.target = "/" + kServiceEntryToken + "/";
  const HttpResponse first = Await(Handle(request));
  EXPECT_EQ(first.status, 303);
  EXPECT_FALSE(first.isDenied);
  ASSERT_EQ(first.fields.size(), 1);
  EXPECT_EQ(first.fields[0].name, "Location");
  EXPECT_EQ(first.fields[0].value, "/" + kServiceToken + "/");
  const HttpResponse second = Await(Handle(request));
  EXPECT_EQ(second.status, 404);
  EXPECT_TRUE(second.isDenied);
}

TEST_F(Service, OnlyRequestsThatAccessControlRejectsAreDenied) {
  Start();
  EXPECT_FALSE(Await(Handle(RequestFor("state"))).isDenied);
  EXPECT_FALSE(Await(Handle(RequestFor("missing"))).isDenied);
  EXPECT_FALSE(Await(Handle(RequestFor("state", "POST"))).isDenied);
  EXPECT_TRUE(Await(Handle(RequestFor("state", "PUT"))).isDenied);
  HttpRequest request = RequestFor("state");
  request.fields[0].value = "example.org";
  EXPECT_TRUE(Await(Handle(request)).isDenied);
}

TEST_F(Service, UnknownResourcesAreNotFound) {
  Start();
  for (const char* const name : {"index.html", "x", "view.js/", "../state", "STATE", "page/view.js"}) {
    EXPECT_EQ(Get(name).status, 404) << name;
  }
}

TEST_F(Service, MethodOfAResourceIsChecked) {
  Start();
  for (const char* const name : {"", "view.js", "state", "stream", "snapshot.png", "recording.mp4", "time"}) {
    const Received received = Post(name, "{}");
    EXPECT_EQ(received.status, 405) << name;
    EXPECT_EQ(received.fields.back().value, "GET, HEAD") << name;
  }
  for (const char* const name : {"camera", "record"}) {
    for (const char* const method : {"GET", "HEAD"}) {
      const Received received = Request(RequestFor(name, method));
      EXPECT_EQ(received.status, 405) << name;
      EXPECT_EQ(received.fields.back().value, "POST") << name;
    }
  }
}

TEST_F(Service, DeniedRequestsAreExplained) {
  Start();
  HttpRequest request = RequestFor("state");
  request.fields.push_back({"Origin", "http://example.org"});
  const Received received = Request(request);
  EXPECT_EQ(received.status, 403);
  EXPECT_THAT(received.body, HasSubstr("open the address that nuveqcam has printed"));
}

TEST_F(Service, TimeIsThatOfTheArrivalTimes) {
  Start();
  const std::uint64_t before = ToMicroseconds(Clock::now());
  const Received received = Get("time");
  EXPECT_EQ(received.type, "text/plain");
  EXPECT_GE(std::stoull(received.body), before);
  EXPECT_LE(std::stoull(received.body), ToMicroseconds(Clock::now()));
}

TEST_F(Service, StateIsThatOfTheCamera) {
  Start();
  camera.cameraName = "Integrated Camera";
  EXPECT_THAT(Get("state").body, HasSubstr(R"("name":"Integrated Camera")"));
}

TEST_F(Service, StateHasTheRateOfARunningCamera) {
  Start();
  OpenCamera();
  for (int i = 0; i < 40; ++i) {
    stream.Publish(NonIdrSlice(10, now + i * std::chrono::milliseconds(100)));
  }
  EXPECT_THAT(Get("state").body,
              HasSubstr(R"("measured":{"delivered":10.0,"promised":15,"findings":[{"finding":"tooSlow",)"
                        R"("text":"64x48 at 15 fps delivers 10.0 fps","advice":")"));
  camera.phase = CameraPhase::kOpening;
  EXPECT_THAT(Get("state").body, HasSubstr(R"("measured":{"delivered":null,"promised":null,"findings":[]})"));
}

TEST_F(Service, ChangeOfTheCameraIsPassedOn) {
  Start();
  EXPECT_EQ(Post("camera", R"({"width":640,"height":480,"fps":15})").status, 202);
  ASSERT_EQ(changes.size(), 1);
  EXPECT_EQ(changes[0].size, (Size{640, 480}));
  EXPECT_EQ(changes[0].fps, 15);
  EXPECT_EQ(Post("camera", R"({"width":640})").status, 400);
  EXPECT_EQ(changes.size(), 1);
}

TEST_F(Service, CameraIsWantedWhileAStreamIsOpen) {
  for (const char* const name : {"stream", "stream.h264", "stream.mp4"}) {
    wanted.clear();
    Start();
    Tick();
    EXPECT_THAT(wanted, IsEmpty()) << name;
    std::shared_ptr<BodySource> first = Open(name);
    const std::shared_ptr<BodySource> second = Open(name);
    EXPECT_THAT(wanted, ElementsAre(true)) << name;
    first.reset();
    Tick();
    EXPECT_THAT(wanted, ElementsAre(true)) << name;
    EXPECT_THAT(Get("state").body, HasSubstr(R"("viewers":1)"));
  }
}

TEST_F(Service, CameraIsNotWantedAfterTheLastViewer) {
  Start();
  Open("stream").reset();
  Tick();
  EXPECT_THAT(wanted, ElementsAre(true, false));
}

TEST_F(Service, StreamThatIsNotStartedIsNoViewer) {
  Start();
  EXPECT_EQ(Request(RequestFor("stream", "HEAD")).status, 200);
  Tick();
  EXPECT_THAT(wanted, IsEmpty());
}

TEST_F(Service, CameraCanBeKeptOpen) {
  Start(true);
  Open("stream").reset();
  Tick();
  EXPECT_THAT(wanted, ElementsAre(true));
}

TEST_F(Service, RecordsBeginWithAStateAndHaveThePackets) {
  Start();
  const std::shared_ptr<BodySource> records = Open("stream");
  const std::string state = Next(*records);
  EXPECT_EQ(NumberIn(state, 0, 4), state.size() - 24);
  EXPECT_EQ(state[4], 2);
  EXPECT_THAT(state.substr(24), StartsWith(R"({"camera":)"));
  EXPECT_EQ(Next(*records), "");
  const Packet key = IdrSlice();
  stream.Publish(key);
  stream.Publish(NonIdrSlice());
  const std::string first = Next(*records);
  EXPECT_EQ(NumberIn(first, 0, 4), key.bytes.size());
  EXPECT_EQ(first[4], 1);
  EXPECT_EQ(first[5], 1);
  EXPECT_EQ(NumberIn(first, 8, 8), 0);
  EXPECT_EQ(NumberIn(first, 16, 8), ToMicroseconds(key.arrival));
  EXPECT_EQ(first.substr(24), std::string(key.bytes.begin(), key.bytes.end()));
  const std::string second = Next(*records);
  EXPECT_EQ(second[5], 0);
  EXPECT_EQ(NumberIn(second, 8, 8), 1);
}

TEST_F(Service, StateIsSentAfterEachChangeAndEverySecond) {
  Start();
  const std::shared_ptr<BodySource> records = Open("stream");
  while (!Next(*records).empty()) {
  }
  Tick(std::chrono::milliseconds(10));
  EXPECT_EQ(Next(*records), "");
  camera.error = "it is broken";
  service->OnCameraChange();
  EXPECT_THAT(Next(*records), HasSubstr("it is broken"));
  EXPECT_EQ(Next(*records), "");
  Tick(std::chrono::seconds(1));
  EXPECT_THAT(Next(*records), HasSubstr("it is broken"));
  EXPECT_EQ(Next(*records), "");
}

TEST_F(Service, AnnexBStreamHasOnlyThePackets) {
  Start();
  const std::shared_ptr<BodySource> packets = Open("stream.h264");
  const Packet key = IdrSlice();
  stream.Publish(key);
  EXPECT_EQ(Next(*packets), std::string(key.bytes.begin(), key.bytes.end()));
  EXPECT_EQ(Next(*packets), "");
}

TEST_F(Service, Mp4StreamEndsWhenTheSizeChanges) {
  Start();
  OpenCamera();
  const std::shared_ptr<BodySource> mp4 = Open("stream.mp4");
  stream.Publish(EncodeKeyFrame(64, 48));
  EXPECT_THAT(Next(*mp4).substr(4), StartsWith("ftyp"));
  stream.EndSession();
  stream.Publish(EncodeKeyFrame(64, 48));
  EXPECT_NE(Next(*mp4), "");
  stream.EndSession();
  stream.Publish(EncodeKeyFrame(96, 48));
  BodyPart part;
  EXPECT_EQ(mp4->Next(part), BodyState::kEnd);
}

TEST_F(Service, PictureIsThatOfTheLatestPacket) {
  Start();
  stream.Publish(EncodeKeyFrame(64, 48));
  const Received received = Get("snapshot.png");
  EXPECT_EQ(received.status, 200);
  EXPECT_EQ(received.type, "image/png");
  EXPECT_THAT(received.body, StartsWith("\x89PNG"));
  // Width and height, big-endian.
  EXPECT_EQ(received.body.substr(16, 8), std::string("\0\0\0\x40\0\0\0\x30", 8));
  EXPECT_THAT(wanted, IsEmpty());
}

TEST_F(Service, PictureWaitsForTheCamera) {
  Start();
  const auto first = Handle(RequestFor("snapshot.png"));
  const auto second = Handle(RequestFor("snapshot.png"));
  EXPECT_THAT(wanted, ElementsAre(true));
  Tick(std::chrono::seconds(1));
  stream.Publish(EncodeKeyFrame(64, 48));
  Tick();
  EXPECT_THAT(wanted, ElementsAre(true, false));
  EXPECT_EQ(Await(first).status, 200);
  EXPECT_EQ(Await(second).status, 200);
}

TEST_F(Service, MissingPictureIsExplained) {
  Start();
  const auto response = Handle(RequestFor("snapshot.png"));
  camera.error = "the camera is in use; close the other program";
  Tick(std::chrono::minutes(1));
  EXPECT_THAT(wanted, ElementsAre(true, false));
  const HttpResponse received = Await(response);
  EXPECT_EQ(received.status, 503);
  EXPECT_EQ(ToText(received.body), R"({"error":"the camera is in use; close the other program"})");
}

TEST_F(Service, PictureWaitsWhileTheCameraIsOpened) {
  Start();
  camera.phase = CameraPhase::kOpening;
  const auto response = Handle(RequestFor("snapshot.png"));
  Tick(std::chrono::seconds(10));
  camera.phase = CameraPhase::kOpen;
  Tick(std::chrono::seconds(4));
  EXPECT_FALSE(response->has_value());
  Tick(std::chrono::seconds(2));
  EXPECT_EQ(Await(response).status, 503);
}

TEST_F(Service, PictureDoesNotWaitForeverForTheCamera) {
  Start();
  camera.phase = CameraPhase::kOpening;
  const auto response = Handle(RequestFor("snapshot.png"));
  for (int i = 0; i < 19; ++i) {
    Tick(std::chrono::seconds(1));
  }
  EXPECT_FALSE(response->has_value());
  Tick(std::chrono::seconds(2));
  EXPECT_EQ(Await(response).status, 503);
}

TEST_F(Service, DamagedPictureIsReported) {
  Start();
  stream.Publish(IdrSlice());
  EXPECT_EQ(Get("snapshot.png").status, 503);
}

TEST_F(Service, RecordingIsDownloaded) {
  Start();
  StartRecording();
  EXPECT_EQ(recordedFps, 15);
  EXPECT_THAT(wanted, ElementsAre(true));
  EXPECT_THAT(Get("state").body, HasSubstr(R"("recording":{"running":true,"stopped":false)"));
  EXPECT_EQ(Get("recording.mp4").status, 404);
  EXPECT_EQ(Post("record", R"({"record":true})").status, 409);

  const Received finished = Post("record", R"({"record":false})");
  EXPECT_EQ(finished.status, 200);
  EXPECT_THAT(finished.body, HasSubstr(R"("running":false,"stopped":true,"frames":1,)"));
  EXPECT_THAT(finished.body, HasSubstr(R"("file":"recording.mp4")"));
  EXPECT_THAT(wanted, ElementsAre(true, false));

  const HttpResponse response = Await(Handle(RequestFor("recording.mp4")));
  const std::string disposition = response.fields.back().value;
  EXPECT_THAT(disposition, StartsWith("attachment; filename=\"camera-20"));
  EXPECT_THAT(disposition, EndsWith(".mp4\""));
  const std::string file = ReadAll(*response.source);
  EXPECT_THAT(file.substr(4), StartsWith("ftyp"));
  EXPECT_THAT(file, HasSubstr("moov"));
}

TEST_F(Service, RecordingThatEndsOnItsOwnCanBeDownloaded) {
  Start();
  StartRecording();
  stream.EndSession();
  EXPECT_TRUE(WaitFor([&] {
    Tick();
    RunPosted();
    return Get("state").body.find(R"("file":"recording.mp4")") != std::string::npos;
  }));
  EXPECT_EQ(Get("recording.mp4").status, 200);
  // The page may have asked for the end at the same time.
  const Received finished = Post("record", R"({"record":false})");
  EXPECT_EQ(finished.status, 200);
  EXPECT_THAT(finished.body, HasSubstr(R"("stopped":false)"));
}

TEST_F(Service, NextRecordingReplacesTheFile) {
  Start();
  StartRecording();
  EXPECT_EQ(Post("record", R"({"record":false})").status, 200);
  // A download in progress keeps the earlier file.
  const HttpResponse download = Await(Handle(RequestFor("recording.mp4")));
  StartRecording();
  EXPECT_EQ(Get("recording.mp4").status, 404);
  EXPECT_THAT(ReadAll(*download.source).substr(4), StartsWith("ftyp"));
}

TEST_F(Service, RecordingThatIsRunningIsSavedAtTheEnd) {
  const ScopedTempFolder folder;
  Start();
  StartRecording();
  const std::string message = service->SaveRecording(folder.Path());
  EXPECT_THAT(message, StartsWith("saved the recording that was not downloaded as "));
  ASSERT_THAT(NamesIn(folder.Path()), ElementsAre(StartsWith("camera-20")));
  EXPECT_THAT(message, EndsWith(NamesIn(folder.Path())[0]));
}

TEST_F(Service, RecordingIsSavedAtTheEndUnlessItWasDownloaded) {
  for (const bool isDownloaded : {false, true}) {
    const ScopedTempFolder folder;
    Start();
    StartRecording();
    EXPECT_EQ(Post("record", R"({"record":false})").status, 200);
    const HttpResponse incomplete = Await(Handle(RequestFor("recording.mp4")));
    incomplete.source->Start([] {});
    if (isDownloaded) {
      Download();
    }
    EXPECT_EQ(service->SaveRecording(folder.Path()).empty(), isDownloaded);
    EXPECT_EQ(NamesIn(folder.Path()).empty(), isDownloaded);
  }
}

TEST_F(Service, RecordingThatCannotBeSavedIsReported) {
  Start();
  EXPECT_EQ(service->SaveRecording(""), "") << "there is none";
  OpenCamera();
  EXPECT_EQ(Post("record", R"({"record":true})").status, 200);
  EXPECT_THAT(service->SaveRecording(""), StartsWith("nothing was recorded"));
}

TEST_F(Service, RecordingRequiresTheCamera) {
  Start();
  const Received received = Post("record", R"({"record":true})");
  EXPECT_EQ(received.status, 409);
  EXPECT_THAT(received.body, HasSubstr("the camera is not running"));
}

TEST_F(Service, EndWithoutARecordingIsAConflict) {
  Start();
  EXPECT_EQ(Post("record", R"({"record":false})").status, 409);
  EXPECT_EQ(Post("record", "true").status, 400);
}

TEST_F(Service, RecordingThatCannotBeWrittenIsExplained) {
  Start();
  OpenCamera();
  recordingError = "the disk is full; make room";
  const Received received = Post("record", R"({"record":true})");
  EXPECT_EQ(received.status, 500);
  EXPECT_EQ(received.body, R"({"error":"the disk is full; make room"})");
  EXPECT_THAT(Get("state").body, HasSubstr(R"("error":"the disk is full; make room","file":null)"));
  EXPECT_THAT(wanted, ElementsAre(true, false));
}

TEST_F(Service, RecordingWithoutAPictureHasNoFile) {
  Start();
  OpenCamera();
  EXPECT_EQ(Post("record", R"({"record":true})").status, 200);
  const Received received = Post("record", R"({"record":false})");
  EXPECT_EQ(received.status, 500);
  EXPECT_THAT(received.body, Not(HasSubstr(R"("error":"")")));
  EXPECT_EQ(Get("recording.mp4").status, 404);
}

TEST_F(Service, EndsWhileAPictureIsAwaited) {
  Start();
  const auto response = Handle(RequestFor("snapshot.png"));
  service.reset();
  EXPECT_FALSE(*response);
}

}  // namespace
}  // namespace nuveqcam
