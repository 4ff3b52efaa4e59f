#include <algorithm>
#include <array>

#include "cli/Json.h"
#include "cli/Text.h"
#include "commands/Commands.h"
#include "commands/DoctorReport.h"

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

DoctorRow RowOf(const SurveyedNode& node, std::string text) {
  for (const std::string& program : node.openIn) {
    text += "; open in " + Printable(program);
  }
  return {Printable(node.node), Printable(node.name), text};
}

DoctorRow RowOfCaptureDevice(const SurveyedNode& device, bool tookOne) {
  const std::string usbDevice =
      device.usbPlace.empty() ? "a USB device" : "USB device " + Printable(device.usbPlace);
  std::string text = tookOne ? "TAKEN: " : "would be taken: ";
  text += "the first camera of " + usbDevice + ", which is built in";
  if (!device.reason.empty()) {
    text = "not taken: " + Printable(device.reason);
  }
  if (!device.openError.empty()) {
    text += "; cannot be opened: " + Printable(device.openError);
  }
  return RowOf(device, text);
}

DoctorRow RowOfOtherNode(const SurveyedNode& node) {
  // One that could not be asked may well be a capture device.
  return RowOf(node, node.openError.empty() ? "not a capture device: " + Printable(node.reason)
                                            : "not looked into: " + Printable(node.reason) + " (" +
                                                  Printable(node.openError) + ")");
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

std::string JsonNode(const SurveyedNode& node, const std::string& reason) {
  return "\"node\":" + JsonString(node.node) + ",\"name\":" + JsonString(node.name) +
         ",\"usbDevice\":" + JsonTextOrNull(node.usbPlace) + ",\"reason\":" + JsonTextOrNull(reason) +
         ",\"openError\":" + JsonTextOrNull(node.openError) +
         ",\"openIn\":" + JsonArray(node.openIn, JsonString);
}

std::string JsonCaptureDevice(const SurveyedNode& device, bool tookOne) {
  const bool isTaken = device.reason.empty() && tookOne;
  const std::string reason = device.reason.empty() && !isTaken
                                 ? "the library did not take it, though it looks built in"
                                 : device.reason;
  return "{\"taken\":" + JsonBool(isTaken) + "," + JsonNode(device, reason) + "}";
}

std::string JsonOtherNode(const SurveyedNode& node) { return "{" + JsonNode(node, node.reason) + "}"; }

}  // namespace

std::string DoctorText(const PcSurvey& pc, const DoctorReport& report) {
  std::vector<DoctorRow> usbDevices;
  for (const SurveyedUsbDevice& device : pc.usbDevices) {
    usbDevices.push_back(RowOf(device));
  }
  std::vector<DoctorRow> nodes;
  for (const SurveyedNode& device : pc.captureDevices) {
    nodes.push_back(RowOfCaptureDevice(device, report.tookOne));
  }
  for (const SurveyedNode& node : pc.otherNodes) {
    nodes.push_back(RowOfOtherNode(node));
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
         ",\"usbDevices\":" + JsonArray(pc.usbDevices, JsonUsbDevice) + ",\"captureDevices\":" +
         JsonArray(pc.captureDevices,
                   [&](const SurveyedNode& device) { return JsonCaptureDevice(device, report.tookOne); }) +
         ",\"otherNodes\":" + JsonArray(pc.otherNodes, JsonOtherNode) + "}\n";
}
