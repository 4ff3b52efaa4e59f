#include "view/ViewApi.h"

#include <cmath>
#include <nlohmann/json.hpp>

namespace nuveqcam {
namespace {

using Json = nlohmann::ordered_json;

constexpr double kMaxSide = 65535;
constexpr double kMaxFps = 1000;
constexpr std::uint8_t kKeyFrameFlag = 1;

std::string ToText(const Json& value) { return value.dump(-1, ' ', true, Json::error_handler_t::replace); }

const char* NameOf(CameraPhase phase) {
  switch (phase) {
    case CameraPhase::kClosed:
      return "closed";
    case CameraPhase::kOpening:
      return "opening";
    case CameraPhase::kOpen:
      return "open";
    case CameraPhase::kFailed:
      return "failed";
  }
  return "";
}

Json CameraToJson(const CameraState& camera) {
  Json sizes = Json::array();
  for (const Size& size : camera.capabilities.sizes) {
    sizes.push_back(Json::object({{"width", size.width}, {"height", size.height}}));
  }
  Json rates = Json::array();
  for (const std::uint32_t rate : camera.capabilities.rates) {
    rates.push_back(rate % 1000 == 0 ? Json(rate / 1000) : Json(rate / 1000.0));
  }
  const auto& request = camera.request;
  return Json::object({{"phase", NameOf(camera.phase)},
                       {"name", camera.cameraName},
                       {"error", camera.error},
                       {"notice", camera.notice},
                       {"conclusion", camera.conclusion},
                       {"advice", camera.advice},
                       {"sizes", sizes},
                       {"rates", rates},
                       {"width", request ? Json(request->size.width) : Json()},
                       {"height", request ? Json(request->size.height) : Json()},
                       {"fps", request ? Json(request->fps) : Json()}});
}

Json MeasuredToJson(const RunningRate& measured) {
  Json findings = Json::array();
  for (const RateFinding& finding : measured.findings) {
    findings.push_back(
        Json::object({{"finding", finding.word}, {"text", finding.text}, {"advice", finding.advice}}));
  }
  const auto& delivered = measured.delivered;
  return Json::object({{"delivered", delivered ? Json(*delivered) : Json()},
                       {"promised", delivered ? Json(measured.promised) : Json()},
                       {"findings", findings}});
}

Json RecordingToJson(const RecordingState& recording) {
  return Json::object({{"running", recording.isRunning},
                       {"stopped", recording.isStopped},
                       {"frames", recording.frames},
                       {"seconds", recording.seconds},
                       {"bytes", recording.bytes},
                       {"error", recording.error},
                       {"file", recording.hasFile ? Json(kRecordingName) : Json()}});
}

// An invalid text gives a value that is not an object.
Json Parse(std::string_view body) { return Json::parse(body, nullptr, false); }

// A member that is a number from 1 to max, rounded; nullopt if it is not.
std::optional<std::uint32_t> NumberOf(const Json& object, const char* name, double max) {
  const auto member = object.find(name);
  if (member == object.end() || !member->is_number()) {
    return std::nullopt;
  }
  const double number = std::round(member->get<double>());
  // Also false for a number that is not finite.
  return number >= 1 && number <= max ? std::optional(static_cast<std::uint32_t>(number)) : std::nullopt;
}

void AppendLittleEndian(std::vector<std::uint8_t>& bytes, std::uint64_t number, int count) {
  for (int i = 0; i < count; ++i) {
    bytes.push_back(static_cast<std::uint8_t>(number));
    number >>= 8U;
  }
}

}  // namespace

std::string StateJson(const ViewState& state) {
  return ToText(Json::object({{"camera", CameraToJson(state.camera)},
                              {"measured", MeasuredToJson(state.measured)},
                              {"recording", RecordingToJson(state.recording)},
                              {"viewers", state.viewers},
                              {"skipped", state.skippedFrames},
                              {"version", NUVEQ_VERSION}}));
}

std::string ErrorJson(const std::string& text) { return ToText(Json::object({{"error", text}})); }

std::string RecordingJson(const RecordingState& recording) { return ToText(RecordingToJson(recording)); }

std::string AddressJson(const std::string& address) {
  return ToText(Json::object({{"address", address}})) + "\n";
}

std::optional<CameraChange> ParseCameraChange(std::string_view body) {
  const Json object = Parse(body);
  if (!object.is_object()) {
    return std::nullopt;
  }
  const auto width = NumberOf(object, "width", kMaxSide);
  const auto height = NumberOf(object, "height", kMaxSide);
  const auto fps = NumberOf(object, "fps", kMaxFps);
  if (!width || !height || !fps) {
    return std::nullopt;
  }
  return CameraChange{{*width, *height}, *fps};
}

std::optional<bool> ParseRecordCommand(std::string_view body) {
  const Json object = Parse(body);
  if (!object.is_object()) {
    return std::nullopt;
  }
  const auto member = object.find("record");
  return member != object.end() && member->is_boolean() ? std::optional(member->get<bool>()) : std::nullopt;
}

std::uint64_t ToMicroseconds(Clock::time_point time) {
  const auto elapsed = std::chrono::duration_cast<std::chrono::microseconds>(time.time_since_epoch());
  return static_cast<std::uint64_t>(elapsed.count());
}

std::vector<std::uint8_t> RecordHeader(RecordKind kind, std::size_t length, bool isKeyFrame,
                                       std::uint64_t number, Clock::time_point time) {
  std::vector<std::uint8_t> header;
  header.reserve(24);
  AppendLittleEndian(header, length, 4);
  header.push_back(static_cast<std::uint8_t>(kind));
  header.push_back(isKeyFrame ? kKeyFrameFlag : 0);
  AppendLittleEndian(header, 0, 2);
  AppendLittleEndian(header, number, 8);
  AppendLittleEndian(header, ToMicroseconds(time), 8);
  return header;
}

}  // namespace nuveqcam
