#include "commands/Json.h"

#include <nlohmann/json.hpp>

#include <cmath>

namespace nuveqcam {
namespace {

using Json = nlohmann::ordered_json;

// ASCII is also safe to print on a terminal.
std::string ToLine(const Json& value) {
  return value.dump(-1, ' ', true, Json::error_handler_t::replace) + "\n";
}

template <typename List, typename Convert>
Json ToArray(const List& list, const Convert& convert) {
  Json array = Json::array();
  for (const auto& entry : list) {
    array.push_back(convert(entry));
  }
  return array;
}

// null for an empty text.
Json TextOrNull(const std::string& text) { return text.empty() ? Json() : Json(text); }

Json SizeToJson(const Size& size) { return Json::object({{"width", size.width}, {"height", size.height}}); }

// Frames per second, as an integer if it is one.
Json RateToJson(std::uint32_t rate) { return rate % 1000 == 0 ? Json(rate / 1000) : Json(rate / 1000.0); }

Json CameraToJson(const Capabilities& camera) {
  return Json::object({{"id", camera.id},
                       {"sizes", ToArray(camera.sizes, SizeToJson)},
                       {"rates", ToArray(camera.rates, RateToJson)}});
}

Json DeviceToJson(const CaptureDeviceInfo& device) {
  return Json::object({{"name", device.name},
                       {"node", device.node},
                       {"builtIn", device.exclusionReason.empty()},
                       {"reason", TextOrNull(device.exclusionReason)}});
}

Json UsbDeviceToJson(const UsbDeviceInfo& device) {
  return Json::object({{"place", device.place},
                       {"name", device.name},
                       {"model", device.model},
                       {"id", device.id},
                       {"hub", device.isHub},
                       {"video", device.hasVideo ? Json(*device.hasVideo) : Json()},
                       {"removable", device.isRemovable},
                       {"verdictFrom", device.removabilitySource},
                       {"verdict", device.removabilityText},
                       {"connectType", TextOrNull(device.connectType)},
                       {"attribute", TextOrNull(device.attribute)},
                       {"verdictHub", TextOrNull(device.removabilityHub)},
                       {"firstFunction", TextOrNull(device.firstFunction)}});
}

Json NodeToJson(const VideoNodeInfo& node, const std::string& reason) {
  return Json::object({{"node", node.node},
                       {"name", node.name},
                       {"usbDevice", TextOrNull(node.usbPlace)},
                       {"reason", TextOrNull(reason)},
                       {"openError", TextOrNull(node.openError)},
                       {"openIn", node.openIn}});
}

Json CaptureDeviceToJson(const VideoNodeInfo& device, bool hasSelected) {
  const bool isSelected = device.reason.empty() && hasSelected;
  Json object = Json::object({{"taken", isSelected}});
  object.update(NodeToJson(device, device.reason.empty() && !isSelected
                                       ? "the library did not select it, although it looks built in"
                                       : device.reason));
  return object;
}

// With up to three decimals; null if there is none.
Json NumberOrNull(const std::optional<double>& number) {
  constexpr double kThousandths = 1000;
  return number ? Json(std::round(*number * kThousandths) / kThousandths) : Json();
}

Json MillisecondsOrNull(const std::optional<Milliseconds>& time) {
  return NumberOrNull(time ? std::optional(time->count()) : std::nullopt);
}

template <typename Number>
Json CountOrNull(const std::optional<Number>& count) {
  return count ? Json(*count) : Json();
}

Json SizeResultToJson(const SizeResult& result) {
  const StreamFigures& figures = result.figures;
  const auto& start = result.start;
  const auto& counters = result.counters;
  const auto& picture = result.units.picture;
  return Json::object({{"width", result.request.size.width},
                       {"height", result.request.size.height},
                       {"asked", result.request.fps},
                       {"listed", CountOrNull(result.listedFps)},
                       {"delivered", NumberOrNull(figures.fps)},
                       {"firstPacketMedian", start ? MillisecondsOrNull(start->median) : Json()},
                       {"firstPacketWorst", start ? MillisecondsOrNull(start->worst) : Json()},
                       {"jitterP99", MillisecondsOrNull(figures.jitterP99)},
                       {"missed", counters ? Json(counters->missed) : Json()},
                       {"damaged", counters ? Json(counters->damaged) : Json()},
                       {"bitRate", NumberOrNull(figures.kbits)},
                       {"largestPacket", figures.packets != 0 ? Json(figures.largestPacket) : Json()},
                       {"cpuPerFrame", MillisecondsOrNull(result.cpuPerFrame)},
                       {"packets", figures.packets},
                       {"pictureWidth", picture ? Json(picture->width) : Json()},
                       {"pictureHeight", picture ? Json(picture->height) : Json()},
                       {"faultyPackets", result.units.faulty},
                       {"packetFault", TextOrNull(result.units.firstFault)},
                       {"failure", TextOrNull(result.failure)},
                       {"findings", ToArray(result.findings, WordFor)}});
}

Json CheckToJson(const BehaviourResult& check) {
  return Json::object({{"check", check.check}, {"fault", TextOrNull(check.fault)}});
}

Json OtherNodeToJson(const VideoNodeInfo& node) { return NodeToJson(node, node.reason); }

}  // namespace

std::string ListJson(const Capabilities* camera, const std::vector<CaptureDeviceInfo>& devices) {
  Json cameras = Json::array();
  if (camera != nullptr) {
    cameras.push_back(CameraToJson(*camera));
  }
  return ToLine(Json::object({{"cameras", cameras}, {"devices", ToArray(devices, DeviceToJson)}}));
}

std::string DoctorJson(const DeviceInventory& inventory, const LibraryResult& result,
                       const DoctorReport& report) {
  return ToLine(Json::object({{"offered", report.code == ExitCode::kOk},
                              {"conclusion", report.conclusion},
                              {"advice", report.advice},
                              {"failure", TextOrNull(result.failure)},
                              {"camera", result.camera ? CameraToJson(*result.camera) : Json()},
                              {"usbDevices", ToArray(inventory.usbDevices, UsbDeviceToJson)},
                              {"captureDevices", ToArray(inventory.captureDevices,
                                                         [&](const VideoNodeInfo& device) {
                                                           return CaptureDeviceToJson(device,
                                                                                      report.hasSelected);
                                                         })},
                              {"otherNodes", ToArray(inventory.otherNodes, OtherNodeToJson)}}));
}

std::string ProbeJson(const ProbeReport& report) {
  const SizeResult* const best = FindBest(report);
  return ToLine(Json::object({{"version", NUVEQ_VERSION},
                              {"ok", ProbeExitCode(report) == ExitCode::kOk},
                              {"complete", report.isComplete},
                              {"seconds", report.seconds},
                              {"name", TextOrNull(report.name)},
                              {"node", TextOrNull(report.node)},
                              {"camera", report.camera ? CameraToJson(*report.camera) : Json()},
                              {"sizes", ToArray(report.sizes, SizeResultToJson)},
                              {"checks", ToArray(report.checks, CheckToJson)},
                              {"best", best != nullptr ? Json::object({{"width", best->request.size.width},
                                                                       {"height", best->request.size.height},
                                                                       {"asked", best->request.fps}})
                                                       : Json()},
                              {"advice", ProbeAdvice(report)}}));
}

}  // namespace nuveqcam
