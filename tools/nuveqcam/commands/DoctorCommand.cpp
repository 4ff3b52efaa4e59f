#include <algorithm>
#include <array>
#include <ostream>

#include "cli/Text.h"
#include "commands/Commands.h"
#include "commands/DoctorReport.h"
#include "commands/Json.h"

namespace nuveqcam {
namespace {

// Two aligned columns and a text of any length.
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
  return rows.empty() ? text + "  none found\n" : text;
}

DoctorRow ToRow(const UsbDeviceInfo& device) {
  std::string description = SanitizeForTerminal(device.name);
  if (!device.model.empty()) {
    description += (description.empty() ? "(" : " (") + SanitizeForTerminal(device.model) + ")";
  }
  return {SanitizeForTerminal(device.place),
          device.isHub ? description + (description.empty() ? "hub" : ", hub") : description,
          SanitizeForTerminal(device.removabilityText)};
}

DoctorRow ToRow(const VideoNodeInfo& node, std::string text) {
  for (const std::string& program : node.openIn) {
    text += "; open in " + SanitizeForTerminal(program);
  }
  return {SanitizeForTerminal(node.node), SanitizeForTerminal(node.name), text};
}

DoctorRow CaptureDeviceRow(const VideoNodeInfo& device, bool hasSelected) {
  std::string text = (hasSelected ? "SELECTED: " : "would be selected: ") + SelectionReason(device);
  if (!device.reason.empty()) {
    text = "not selected: " + SanitizeForTerminal(device.reason);
  }
  if (!device.openError.empty()) {
    text += "; cannot be opened: " + SanitizeForTerminal(device.openError);
  }
  return ToRow(device, text);
}

DoctorRow OtherNodeRow(const VideoNodeInfo& node) {
  // A node that cannot be queried may be a capture device.
  return ToRow(node, node.openError.empty() ? "not a capture device: " + SanitizeForTerminal(node.reason)
                                            : "not examined: " + SanitizeForTerminal(node.reason) + " (" +
                                                  SanitizeForTerminal(node.openError) + ")");
}

}  // namespace

std::string DoctorText(const DeviceInventory& inventory, const DoctorReport& report) {
  std::vector<DoctorRow> usbDevices;
  usbDevices.reserve(inventory.usbDevices.size());
  for (const UsbDeviceInfo& device : inventory.usbDevices) {
    usbDevices.push_back(ToRow(device));
  }
  std::vector<DoctorRow> nodes;
  nodes.reserve(inventory.captureDevices.size() + inventory.otherNodes.size());
  for (const VideoNodeInfo& device : inventory.captureDevices) {
    nodes.push_back(CaptureDeviceRow(device, report.hasSelected));
  }
  for (const VideoNodeInfo& node : inventory.otherNodes) {
    nodes.push_back(OtherNodeRow(node));
  }
  std::string text = DoctorTable("USB devices", usbDevices) + "\n" + DoctorTable("Capture devices", nodes) +
                     "\n" + report.conclusion + "\n";
  for (const std::string& line : report.advice) {
    text += "  - " + line + "\n";
  }
  return text;
}

ExitCode RunDoctor(const CommandContext& context) {
  LibraryResult result = QueryLibrary(context.camera);
  const DeviceInventory inventory = GetMatchingInventory(context.camera, result);
  const DoctorReport report = MakeDoctorReport(inventory, result);
  context.console.out << (context.options.wantsJson ? DoctorJson(inventory, result, report)
                                                    : DoctorText(inventory, report));
  return report.code;
}

}  // namespace nuveqcam
