#include <algorithm>
#include <array>

#include "Commands.h"
#include "DoctorReport.h"
#include "Json.h"
#include "Text.h"

namespace {

// Two columns and a text that may be long.
using DoctorRow = std::array<std::string, 3>;

std::string DoctorTable(const char* title, const std::vector<DoctorRow>& rows) {
  std::array<std::size_t, 2> widths{};
  for (const DoctorRow& row : rows) {
    for (std::size_t i = 0; i < widths.size(); ++i) {
      widths[i] = std::max(widths[i], Columns(row[i]));
    }
  }
  std::string text = std::string(title) + "\n";
  for (const DoctorRow& row : rows) {
    text += "  " + PadRight(row[0], widths[0]) + "  " + PadRight(row[1], widths[1]) + "  " + row[2] + "\n";
  }
  return rows.empty() ? text + "  none seen\n" : text;
}

DoctorRow RowOf(const SurveyedUsbDevice& device) {
  std::string what = Printable(device.name);
  if (!device.model.empty()) {
    what += (what.empty() ? "(" : " (") + Printable(device.model) + ")";
  }
  return {Printable(device.place), device.isHub ? what + (what.empty() ? "hub" : ", hub") : what,
          Printable(device.verdict)};
}

DoctorRow RowOf(const SurveyedNode& node, const std::string& verdict) {
  std::string text = verdict;
  if (!node.openError.empty()) {
    text += "; cannot be opened: " + Printable(node.openError);
  }
  for (const std::string& program : node.openIn) {
    text += "; open in " + Printable(program);
  }
  return {Printable(node.node), Printable(node.name), text};
}

DoctorRow RowOfCaptureDevice(const SurveyedNode& device) {
  const std::string usbDevice =
      device.usbPlace.empty() ? "a USB device" : "USB device " + Printable(device.usbPlace);
  return RowOf(device, device.reason.empty()
                           ? "TAKEN: the first function of " + usbDevice + ", which is built in"
                           : "not taken: " + Printable(device.reason));
}

std::string JsonUsbDevice(const SurveyedUsbDevice& device) {
  return "{\"place\":" + JsonString(device.place) + ",\"name\":" + JsonString(device.name) +
         ",\"model\":" + JsonString(device.model) + ",\"id\":" + JsonString(device.id) +
         ",\"hub\":" + JsonBool(device.isHub) +
         ",\"video\":" + (device.hasVideo ? JsonBool(*device.hasVideo) : "null") +
         ",\"removable\":" + JsonBool(device.isRemovable) +
         ",\"verdictFrom\":" + JsonString(device.verdictFrom) + ",\"verdict\":" + JsonString(device.verdict) +
         ",\"connectType\":" + JsonTextOrNull(device.connectType) +
         ",\"attribute\":" + JsonTextOrNull(device.attribute) +
         ",\"verdictHub\":" + JsonTextOrNull(device.verdictHub) +
         ",\"firstFunction\":" + JsonTextOrNull(device.firstFunction) + "}";
}

std::string JsonNode(const SurveyedNode& node) {
  return "\"node\":" + JsonString(node.node) + ",\"name\":" + JsonString(node.name) +
         ",\"usbDevice\":" + JsonTextOrNull(node.usbPlace) + ",\"reason\":" + JsonTextOrNull(node.reason) +
         ",\"openError\":" + JsonTextOrNull(node.openError) +
         ",\"openIn\":" + JsonArray(node.openIn, JsonString);
}

std::string JsonCaptureDevice(const SurveyedNode& device) {
  return "{\"taken\":" + JsonBool(device.reason.empty()) + "," + JsonNode(device) + "}";
}

std::string JsonOtherNode(const SurveyedNode& node) { return "{" + JsonNode(node) + "}"; }

}  // namespace

std::string DoctorText(const PcSurvey& pc, const DoctorReport& report) {
  std::vector<DoctorRow> usbDevices;
  for (const SurveyedUsbDevice& device : pc.usbDevices) {
    usbDevices.push_back(RowOf(device));
  }
  std::vector<DoctorRow> nodes;
  for (const SurveyedNode& device : pc.captureDevices) {
    nodes.push_back(RowOfCaptureDevice(device));
  }
  for (const SurveyedNode& node : pc.otherNodes) {
    nodes.push_back(RowOf(node, "not a capture device: " + Printable(node.reason)));
  }
  std::string text = DoctorTable("USB devices", usbDevices) + "\n" + DoctorTable("Capture devices", nodes) +
                     "\n" + report.conclusion + "\n";
  for (const std::string& line : report.advice) {
    text += "  - " + line + "\n";
  }
  return text;
}

std::string DoctorJson(const PcSurvey& pc, const LibraryAnswer& answer, const DoctorReport& report) {
  return "{\"offered\":" + JsonBool(report.code == ExitCode::kOk) +
         ",\"conclusion\":" + JsonString(report.conclusion) +
         ",\"advice\":" + JsonArray(report.advice, JsonString) +
         ",\"failure\":" + JsonTextOrNull(answer.failure) +
         ",\"camera\":" + (answer.camera ? CameraJson(*answer.camera) : "null") +
         ",\"usbDevices\":" + JsonArray(pc.usbDevices, JsonUsbDevice) +
         ",\"captureDevices\":" + JsonArray(pc.captureDevices, JsonCaptureDevice) +
         ",\"otherNodes\":" + JsonArray(pc.otherNodes, JsonOtherNode) + "}\n";
}
