// Fuzzes the request handling of nuveqcam view, without sockets: the HTTP parser within its limits, access
// control, the handlers, and the bodies of their responses. Whatever a client sends, the server answers each
// request exactly once, answers only what access control permits, and changes nothing on a request that is
// not a valid POST of the page.
#include <wels/codec_api.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "ByteReader.h"
#include "Require.h"
#include "cli/StopSignals.h"
#include "view/HttpParser.h"
#include "view/ViewService.h"

namespace fuzz {
namespace {

using namespace nuveqcam;  // NOLINT(google-build-using-namespace)

const std::string kToken = "abcdefghijklmnopqrstuvwxyz-_0123";
const std::string kEntryToken = "0123abcdefghijklmnopqrstuvwxyz-_";
constexpr std::uint16_t kPort = 4711;
// Smaller than the server's, so that short inputs reach them.
constexpr HttpParserLimits kLimits{.headerBytes = 8192, .bodyBytes = 4096};
constexpr std::size_t kMaxRequests = 64;

struct EncoderDeleter {
  void operator()(ISVCEncoder* encoder) const {
    encoder->Uninitialize();
    WelsDestroySVCEncoder(encoder);
  }
};

// A grey picture, with which a recording can begin.
Packet EncodeKeyFrame() {
  constexpr int kSide = 16;
  ISVCEncoder* created = nullptr;
  Require(WelsCreateSVCEncoder(&created) == 0, "an encoder is created");
  const std::unique_ptr<ISVCEncoder, EncoderDeleter> encoder(created);
  SEncParamBase parameters{};
  parameters.iUsageType = CAMERA_VIDEO_REAL_TIME;
  parameters.iPicWidth = kSide;
  parameters.iPicHeight = kSide;
  parameters.iTargetBitrate = 100'000;
  parameters.fMaxFrameRate = 30;
  Require(encoder->Initialize(&parameters) == 0, "the encoder is initialized");
  std::vector<unsigned char> plane(std::size_t{kSide} * kSide, 128);
  SSourcePicture source{};
  source.iColorFormat = videoFormatI420;
  source.iPicWidth = kSide;
  source.iPicHeight = kSide;
  source.iStride[0] = kSide;
  source.iStride[1] = source.iStride[2] = kSide / 2;
  source.pData[0] = source.pData[1] = source.pData[2] = plane.data();
  SFrameBSInfo info{};
  Require(encoder->EncodeFrame(&source, &info) == 0, "a picture is encoded");
  // The layers are contiguous in memory.
  const unsigned char* const begin = info.sLayerInfo[0].pBsBuf;
  return {{begin, begin + info.iFrameSizeInBytes}, Clock::now()};
}

// A service whose camera is open, has delivered one picture, and counts what is asked of it.
class Service {
 public:
  Service()
      : m_service(
            AccessControl(kToken, kPort, kEntryToken),
            ViewBackend{.stream = m_stream,
                        .cameraState = [this] { return m_camera; },
                        .changeCamera = [this](const Size& size, std::uint32_t fps) { OnChange(size, fps); },
                        .setCameraWanted = [](bool /*isWanted*/) {},
                        .startRecording =
                            [this](std::uint32_t fps) {
                              ++m_recordings;
                              return std::make_unique<ViewRecording>(m_stream, fps, Signals(),
                                                                     ViewRecordingLimits{.freeBytes = 0});
                            },
                        .post =
                            [this](std::function<void()> task) {
                              const std::lock_guard lock(m_mutex);
                              m_posted.push_back(std::move(task));
                            }}) {
    static const Packet keyFrame = EncodeKeyFrame();
    m_camera.phase = CameraPhase::kOpen;
    m_camera.request = CameraRequest{"0", {16, 16}, 30};
    m_stream.Publish(keyFrame);
  }

  void Handle(const HttpRequest& request) {
    const int changes = m_changes;
    const int recordings = m_recordings;
    const auto reply = std::make_shared<Reply>();
    m_service.Handle(request, [reply](const HttpResponse& given) {
      const std::lock_guard lock(reply->mutex);
      reply->response = given;
      ++reply->count;
    });
    const bool isWaiting = CountOf(*reply) == 0;
    WaitUntil([&] { return CountOf(*reply) > 0; });
    Require(CountOf(*reply) == 1, "a request is answered exactly once");
    const HttpResponse& response = reply->response;
    const AccessDecision decision = AccessControl(kToken, kPort).Check(request);
    Require(!isWaiting || (decision.status == 200 &&
                           (decision.resource == "snapshot.png" || decision.resource == "record")),
            "only pictures and recordings are answered later");
    if (response.status == 303) {
      Require(!m_hasEntered, "the entry address works once");
      Require(request.target.find(kEntryToken) == 1, "only the entry address leads to the page");
      m_hasEntered = true;
    } else if (decision.status != 200) {
      Require(response.status == decision.status && response.isDenied,
              "a denied request gets the status of access control");
    }
    if (response.status == 200) {
      Require(request.target.find(kToken) == 1, "only requests with the token succeed", request.target);
      Require(request.method == "GET" || request.method == "HEAD" || decision.resource == "record",
              "nothing else succeeds but reading");
    }
    Require(m_changes == changes || (request.method == "POST" && response.status == 202),
            "only a valid POST changes the camera");
    Require(m_recordings == recordings || (request.method == "POST" && response.status == 200),
            "only a valid POST starts a recording");
    ReadBody(response);
  }

 private:
  struct Reply {
    std::mutex mutex;
    HttpResponse response;
    int count = 0;
  };

  // Installed once: it replaces the fuzzer's handlers.
  static const StopSignals& Signals() {
    static const StopSignals signals;
    return signals;
  }

  static int CountOf(Reply& reply) {
    const std::lock_guard lock(reply.mutex);
    return reply.count;
  }

  void OnChange(const Size& size, std::uint32_t fps) {
    ++m_changes;
    Require(size.width >= 1 && size.width <= 65535 && size.height >= 1 && size.height <= 65535 && fps >= 1 &&
                fps <= 1000,
            "a change of the camera is in range");
  }

  // Does what the server does meanwhile.
  void WaitUntil(const std::function<bool()>& condition) {
    const auto deadline = Clock::now() + std::chrono::seconds(30);
    while (!condition()) {
      Require(Clock::now() < deadline, "the background answers");
      RunPosted();
      m_service.OnTick(Clock::now());
      std::this_thread::sleep_for(std::chrono::microseconds(50));
    }
  }

  void RunPosted() {
    std::deque<std::function<void()>> posted;
    {
      const std::lock_guard lock(m_mutex);
      posted.swap(m_posted);
    }
    for (const auto& task : posted) {
      task();
    }
  }

  // All of a recording, else the first part, as the server would send it.
  static void ReadBody(const HttpResponse& response) {
    if (!response.source) {
      return;
    }
    std::uint64_t sent = 0;
    const std::optional<std::uint64_t> size = response.source->Size();
    response.source->Start([] {});
    BodyPart part;
    BodyState state = response.source->Next(part);
    while (size && state != BodyState::kEnd) {
      if (state == BodyState::kWait) {
        std::this_thread::sleep_for(std::chrono::microseconds(50));
      } else {
        Require(part.Size() > 0, "a part of a body has bytes");
        sent += part.Size();
      }
      part = {};
      state = response.source->Next(part);
    }
    Require(!size || sent == *size, "the body of a recording is complete");
    Require(size || state != BodyState::kPart || part.Size() > 0, "a part of a body has bytes");
  }

  LiveStream m_stream;
  CameraState m_camera;
  int m_changes = 0;
  std::atomic<int> m_recordings = 0;
  bool m_hasEntered = false;
  std::mutex m_mutex;
  std::deque<std::function<void()>> m_posted;  // guarded by m_mutex
  ViewService m_service;
};

// The requests in the bytes, which arrive in pieces of the given size.
std::vector<HttpRequest> ReadRequests(std::span<const std::uint8_t> bytes, std::size_t pieceSize) {
  HttpParser parser(kLimits);
  std::vector<HttpRequest> requests;
  while (!bytes.empty()) {
    const std::span<const std::uint8_t> piece = bytes.first(std::min(bytes.size(), pieceSize));
    bytes = bytes.subspan(piece.size());
    ParseResult result = parser.Feed(piece);
    while (result == ParseResult::kRequest) {
      requests.push_back(parser.Take());
      result = parser.Feed({});
    }
    if (result == ParseResult::kError) {
      Require(parser.ErrorStatus() >= 400 && parser.ErrorStatus() < 600,
              "an invalid request has the status of an error");
      break;
    }
  }
  return requests;
}

void RequireWithinLimits(const HttpRequest& request) {
  std::size_t size = request.method.size() + request.target.size();
  for (const HttpField& field : request.fields) {
    size += field.name.size() + field.value.size();
  }
  Require(size <= kLimits.headerBytes, "the header of a request is bounded");
  Require(request.body.size() <= kLimits.bodyBytes, "the body of a request is bounded");
}

void Run(const std::uint8_t* data, std::size_t size) {
  ByteReader reader(data, size);
  const std::size_t pieceSize = reader.Byte() + std::size_t{1};
  const std::span<const std::uint8_t> bytes = reader.TakeAll();
  const std::vector<HttpRequest> requests = ReadRequests(bytes, pieceSize);
  const std::vector<HttpRequest> atOnce = ReadRequests(bytes, bytes.size() + 1);
  Require(requests.size() == atOnce.size(), "the requests do not depend on how their bytes arrive");
  Service service;
  for (std::size_t i = 0; i < std::min(requests.size(), kMaxRequests); ++i) {
    RequireWithinLimits(requests[i]);
    Require(requests[i].target == atOnce[i].target && requests[i].body == atOnce[i].body,
            "a request does not depend on how its bytes arrive");
    service.Handle(requests[i]);
  }
}

}  // namespace
}  // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Run(data, size);
  return 0;
}
