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
      widths[i] = std::max(widths[i], CodePointCount(row[i]));
    }
  }
  std::string text = std::string(title) + "\n";
  for (const DoctorRow& row : rows) {
    text += "  " + PadRight(row[0], widths[0]) + "  " + PadRight(row[1], widths[1]) + "  " + row[2] + "\n";
  }
  return rows.empty() ? text + "  none seen\n" : text;
}

DoctorRow RowOf(const UsbDeviceInfo& device) {
  std::string what = SanitizeForTerminal(device.name);
  if (!device.model.empty()) {
    what += (what.empty() ? "(" : " (") + SanitizeForTerminal(device.model) + ")";
  }
  return {SanitizeForTerminal(device.place), device.isHub ? what + (what.empty() ? "hub" : ", hub") : what,
          SanitizeForTerminal(device.verdict)};
}

DoctorRow RowOf(const VideoNodeInfo& node, std::string text) {
  for (const std::string& program : node.openIn) {
    text += "; open in " + SanitizeForTerminal(program);
  }
  return {SanitizeForTerminal(node.node), SanitizeForTerminal(node.name), text};
}

DoctorRow RowOfCaptureDevice(const VideoNodeInfo& device, bool tookOne) {
  const std::string usbDevice =
      device.usbPlace.empty() ? "a USB device" : "USB device " + SanitizeForTerminal(device.usbPlace);
  std::string text = tookOne ? "TAKEN: " : "would be taken: ";
  text += "the first camera of " + usbDevice + ", which is built in";
  if (!device.reason.empty()) {
    text = "not taken: " + SanitizeForTerminal(device.reason);
  }
  if (!device.openError.empty()) {
    text += "; cannot be opened: " + SanitizeForTerminal(device.openError);
  }
  return RowOf(device, text);
}

DoctorRow RowOfOtherNode(const VideoNodeInfo& node) {
  // One that could not be asked may well be a capture device.
  return RowOf(node, node.openError.empty() ? "not a capture device: " + SanitizeForTerminal(node.reason)
                                            : "not looked into: " + SanitizeForTerminal(node.reason) + " (" +
                                                  SanitizeForTerminal(node.openError) + ")");
}

std::string JsonUsbDevice(const UsbDeviceInfo& device) {
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

std::string JsonNode(const VideoNodeInfo& node, const std::string& reason) {
  return "\"node\":" + JsonString(node.node) + ",\"name\":" + JsonString(node.name) +
         ",\"usbDevice\":" + JsonTextOrNull(node.usbPlace) + ",\"reason\":" + JsonTextOrNull(reason) +
         ",\"openError\":" + JsonTextOrNull(node.openError) +
         ",\"openIn\":" + JsonArray(node.openIn, JsonString);
}

std::string JsonCaptureDevice(const VideoNodeInfo& device, bool tookOne) {
  const bool isTaken = device.reason.empty() && tookOne;
  const std::string reason = device.reason.empty() && !isTaken
                                 ? "the library did not take it, though it looks built in"
                                 : device.reason;
  return "{\"taken\":" + JsonBool(isTaken) + "," + JsonNode(device, reason) + "}";
}

std::string JsonOtherNode(const VideoNodeInfo& node) { return "{" + JsonNode(node, node.reason) + "}"; }

}  // namespace

std::string DoctorText(const DeviceInventory& pc, const DoctorReport& report) {
  std::vector<DoctorRow> usbDevices;
  for (const UsbDeviceInfo& device : pc.usbDevices) {
    usbDevices.push_back(RowOf(device));
  }
  std::vector<DoctorRow> nodes;
  for (const VideoNodeInfo& device : pc.captureDevices) {
    nodes.push_back(RowOfCaptureDevice(device, report.tookOne));
  }
  for (const VideoNodeInfo& node : pc.otherNodes) {
    nodes.push_back(RowOfOtherNode(node));
  }
  std::string text = DoctorTable("USB devices", usbDevices) + "\n" + DoctorTable("Capture devices", nodes) +
                     "\n" + report.conclusion + "\n";
  for (const std::string& line : report.advice) {
    text += "  - " + line + "\n";
  }
  return text;
}

std::string DoctorJson(const DeviceInventory& pc, const LibraryAnswer& answer, const DoctorReport& report) {
  return "{\"offered\":" + JsonBool(report.code == ExitCode::kOk) +
         ",\"conclusion\":" + JsonString(report.conclusion) +
         ",\"advice\":" + JsonArray(report.advice, JsonString) +
         ",\"failure\":" + JsonTextOrNull(answer.failure) +
         ",\"camera\":" + (answer.camera ? CameraJson(*answer.camera) : "null") +
         ",\"usbDevices\":" + JsonArray(pc.usbDevices, JsonUsbDevice) + ",\"captureDevices\":" +
         JsonArray(pc.captureDevices,
                   [&](const VideoNodeInfo& device) { return JsonCaptureDevice(device, report.tookOne); }) +
         ",\"otherNodes\":" + JsonArray(pc.otherNodes, JsonOtherNode) + "}\n";
}
