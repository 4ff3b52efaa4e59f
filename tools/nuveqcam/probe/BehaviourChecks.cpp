#include "probe/BehaviourChecks.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <thread>
#include <utility>

#include "cli/Failure.h"
#include "cli/Text.h"
#include "probe/AccessUnitChecker.h"

namespace nuveqcam {
namespace {

// Numbers of packets after which the camera is closed: dense at the start of the stream, where the frame pool
// fills for the first time, and sparse later.
constexpr std::array<std::uint64_t, 10> kCloseAfter{1, 2, 3, 5, 8, 13, 21, 34, 55, 89};

// How many packets have to follow something that must not disturb the stream.
constexpr std::uint64_t kUndisturbedPackets = 10;

std::string StatusText(const CallbackRecord::Status& status) {
  const std::string name = status.status == NUVEQ_SERVICE_STATUS_CAMERA_OPEN     ? "open"
                           : status.status == NUVEQ_SERVICE_STATUS_CAMERA_CLOSED ? "closed"
                                                                                 : "another status";
  return name + " for id " + SanitizeForTerminal(status.id);
}

std::string StatusText(const std::vector<CallbackRecord::Status>& statuses) {
  std::string text;
  for (const CallbackRecord::Status& status : statuses) {
    text += (text.empty() ? "" : ", ") + StatusText(status);
  }
  return text.empty() ? "nothing" : text;
}

// Empty if the library has reported these statuses.
std::string ReportFault(const std::vector<CallbackRecord::Status>& expected) {
  const std::vector<CallbackRecord::Status> actual = Camera::Callbacks().statuses;
  const bool isSame =
      std::equal(actual.begin(), actual.end(), expected.begin(), expected.end(),
                 [](const auto& a, const auto& b) { return a.id == b.id && a.status == b.status; });
  return isSame ? "" : "the library reports " + StatusText(actual) + " instead of " + StatusText(expected);
}

bool AreEqual(const Capabilities& a, const Capabilities& b) {
  return a.id == b.id && a.sizes == b.sizes && a.rates == b.rates;
}

}  // namespace

BehaviourChecks::BehaviourChecks(const ProbeSetup& setup, CameraRequest request, Capabilities capabilities)
    : m_setup(setup), m_request(std::move(request)), m_capabilities(std::move(capabilities)) {}

std::vector<BehaviourCheck> BehaviourChecks::All() {
  constexpr int kOpensInARow = 3;
  constexpr int kOpensAtOnce = 2;
  std::vector<BehaviourCheck> checks{{"closeWithoutOpen", [this] { return CloseWithoutOpen(); }}};
  for (const std::uint64_t packets : kCloseAfter) {
    checks.push_back(
        {"closeAfter" + std::to_string(packets), [this, packets] { return CloseAfter(packets); }});
  }
  checks.push_back({"threeOpens", [this] { return OpenRepeatedly(kOpensInARow, 1); }});
  checks.push_back({"openAtOnce", [this] { return OpenRepeatedly(kOpensAtOnce, kUndisturbedPackets); }});
  checks.push_back({"secondOpen", [this] { return OpenWhileOpen(); }});
  checks.push_back({"queryWhileOpen", [this] { return QueryWhileOpen(); }});
  checks.push_back({"keyFrames", [this] { return CaptureUntilKeyFrame(); }});
  return checks;
}

BehaviourResult BehaviourChecks::Run(const BehaviourCheck& check) {
  try {
    return {check.name, check.run()};
  } catch (const Failure& failure) {
    return {check.name, failure.what()};
  }
}

std::string BehaviourChecks::CloseWithoutOpen() const {
  Camera::ClearCallbacks();
  const std::string& id = m_request.id;
  const std::int32_t result =
      m_setup.camera.Table().CloseCameraDevice(id.data(), static_cast<std::uint32_t>(id.size()));
  return result == NUVEQ_CAMERA_CLOSE_INCOMPLETE ? ReportFault({})
                                                 : "the close returns " + std::to_string(result);
}

std::string BehaviourChecks::CloseAfter(std::uint64_t packets) const {
  std::string fault = PlainSession({packets});
  if (fault.empty()) {
    std::this_thread::sleep_for(m_setup.timeouts.afterClose);
    if (Camera::Callbacks().packetsAfterClose != 0) {
      fault = "packets arrive after the close";
    }
  }
  return fault;
}

std::string BehaviourChecks::OpenRepeatedly(int opens, std::uint64_t packets) const {
  for (int i = 0; i < opens; ++i) {
    if (std::string fault = PlainSession({packets}); !fault.empty()) {
      return fault;
    }
  }
  return {};
}

std::string BehaviourChecks::OpenWhileOpen() const {
  // Another text for the same camera: ids are decimal numbers.
  const std::string otherId = "0" + m_request.id;
  const NUVEQCameraParam again{otherId.data(), static_cast<std::uint32_t>(otherId.size()),
                               m_request.size.width, m_request.size.height, m_request.fps};
  std::int32_t result = NUVEQ_CAMERA_OK;
  Camera::ClearCallbacks();
  const CapturedStream stream = CapturePackets(
      m_setup, m_request,
      {kUndisturbedPackets, {}, [&] { result = m_setup.camera.Table().OpenCameraDevice(&again); }});
  if (stream.end == CaptureEnd::kInterrupted) {
    return {};
  }
  if (result != NUVEQ_CAMERA_ALREADY_OPEN) {
    return "the second open returns " + std::to_string(result);
  }
  if (std::string fault = SessionFault(stream, {m_request.id, otherId}); !fault.empty()) {
    return fault;
  }
  return Camera::Callbacks().packetId == otherId ? ""
                                                 : "later packets do not carry the id of the second open";
}

std::string BehaviourChecks::QueryWhileOpen() const {
  std::string fault;
  const auto query = [&] {
    try {
      fault = AreEqual(m_setup.camera.Query(), m_capabilities)
                  ? ""
                  : "the query returns other sizes or rates while the camera is open";
    } catch (const Failure& failure) {
      fault = failure.what();
    }
  };
  Camera::ClearCallbacks();
  const CapturedStream stream = CapturePackets(m_setup, m_request, {kUndisturbedPackets, {}, query});
  return fault.empty() ? SessionFault(stream, {m_request.id}) : fault;
}

std::string BehaviourChecks::CaptureUntilKeyFrame() const {
  const std::uint64_t interval = KeyFrameInterval(m_request.fps);
  Camera::ClearCallbacks();
  const CapturedStream stream = CapturePackets(m_setup, m_request, {interval + 1});
  if (std::string fault = SessionFault(stream, {m_request.id}); !fault.empty()) {
    return fault;
  }
  for (std::size_t i = 0; i < stream.packets.size(); ++i) {
    const bool isDue = i == 0 || i == interval;
    if (IsKeyFrame(stream.packets[i].bytes) != isDue) {
      return "packet " + std::to_string(i) +
             (isDue ? " is no key frame, although one is due" : " is a key frame that is not due");
    }
  }
  return {};
}

std::string BehaviourChecks::PlainSession(const CaptureGoal& goal) const {
  Camera::ClearCallbacks();
  return SessionFault(CapturePackets(m_setup, m_request, goal), {m_request.id});
}

std::string BehaviourChecks::SessionFault(const CapturedStream& stream,
                                          const std::vector<std::string>& openIds) const {
  if (stream.end == CaptureEnd::kInterrupted) {
    return {};
  }
  if (const std::string text = CaptureEndText(stream.end, stream.packets.size()); !text.empty()) {
    return "the camera " + text;
  }
  if (!IsKeyFrame(stream.packets.front().bytes)) {
    return "the first packet is no key frame";
  }
  if (stream.closeResult != NUVEQ_CAMERA_CLOSED && stream.closeResult != NUVEQ_CAMERA_CLOSE_INCOMPLETE) {
    return "the close returns " + std::to_string(stream.closeResult);
  }
  std::vector<CallbackRecord::Status> expected;
  std::transform(openIds.begin(), openIds.end(), std::back_inserter(expected), [](const std::string& id) {
    return CallbackRecord::Status{id, NUVEQ_SERVICE_STATUS_CAMERA_OPEN};
  });
  expected.push_back({m_request.id, NUVEQ_SERVICE_STATUS_CAMERA_CLOSED});
  return ReportFault(expected);
}

}  // namespace nuveqcam
