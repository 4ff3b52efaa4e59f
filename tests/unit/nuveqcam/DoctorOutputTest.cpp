// The output of doctor.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

#include "DoctorInventories.h"
#include "commands/Json.h"

namespace nuveqcam {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;

TEST(Doctor, PrintsTablesAndConclusion) {
  DeviceInventory inventory = Laptop();
  inventory.usbDevices.push_back(UsbDeviceAt("1-6", true, "nobody"));
  inventory.usbDevices[2].isHub = true;
  inventory.usbDevices[2].name = "";
  inventory.usbDevices[2].model = "";
  inventory.captureDevices[1].openError = "Permission denied";
  inventory.captureDevices[0].openIn = {"firefox (1)", "ffmpeg (22)"};
  inventory.otherNodes.push_back(NodeAt("/dev/video2", "1-5", "it was not examined"));
  inventory.otherNodes[1].openError = "Permission denied";
  EXPECT_EQ(
      DoctorText(inventory, MakeDoctorReport(inventory, {kOffered, ""}, kTestSystem)),
      "USB devices\n"
      "  1-5     Camera 1-5 (04f2:b6be)     according to firmware\n"
      "  1-6.10  Camera 1-6.10 (04f2:b6be)  according to hub\n"
      "  1-6     hub                        according to nobody\n"
      "\n"
      "Capture devices\n"
      "  /dev/video0   Camera  SELECTED: the first camera of USB device 1-5, which is built in; open in "
      "firefox (1); open in ffmpeg (22)\n"
      "  /dev/video10  Camera  not selected: it is plugged in; cannot be opened: Permission denied\n"
      "  /dev/video1   Camera  not a capture device: it carries metadata\n"
      "  /dev/video2   Camera  not examined: it was not examined (Permission denied)\n"
      "\n"
      "Offered camera: Camera (/dev/video0), 320x240 to 1280x720, 7.5 to 30 fps\n"
      "  - 'nuveqcam probe' measures what each size delivers\n");
}

TEST(Doctor, PrintsAPcWithoutDevices) {
  EXPECT_EQ(DoctorText({}, MakeDoctorReport({}, {}, kTestSystem)),
            "USB devices\n"
            "  none found\n"
            "\n"
            "Capture devices\n"
            "  none found\n"
            "\n"
            "No camera is offered: no capture devices were found\n"
            "  - if the PC has a built-in camera, enable it with its key, switch or shutter, or in the BIOS "
            "setup\n"
            "  - connect one\n");
}

// All texts of a device that must not reach a terminal without being sanitized.
std::vector<std::string*> TextsOf(UsbDeviceInfo& device) {
  return {&device.place,
          &device.name,
          &device.model,
          &device.id,
          &device.removabilityText,
          &device.connectType,
          &device.attribute,
          &device.removabilityHub,
          &device.firstFunction};
}

std::vector<std::string*> TextsOf(VideoNodeInfo& node) {
  return {&node.node, &node.name, &node.usbPlace, &node.reason, &node.openError, &node.openIn[0]};
}

std::vector<std::string*> TextsOf(DeviceInventory& inventory) {
  std::vector<std::string*> texts;
  const auto add = [&texts](auto& device) {
    const std::vector<std::string*> more = TextsOf(device);
    texts.insert(texts.end(), more.begin(), more.end());
  };
  std::for_each(inventory.usbDevices.begin(), inventory.usbDevices.end(), add);
  std::for_each(inventory.captureDevices.begin(), inventory.captureDevices.end(), add);
  std::for_each(inventory.otherNodes.begin(), inventory.otherNodes.end(), add);
  return texts;
}

// True for C0, DEL and C1 control characters in UTF-8.
bool HasControlCharacters(const std::string& text) {
  return std::any_of(text.begin(), text.end(),
                     [](char c) { return c != '\n' && ((c >= 0 && c < ' ') || c == '\x7f'); }) ||
         text.find("\u009b") != std::string::npos;
}

// An inventory with the injected text in every field: a device for each source of advice, a camera whose USB
// device is not known, a selected camera, and another node.
DeviceInventory InventoryWith(const std::string& injected, bool isSelected) {
  DeviceInventory inventory;
  for (const char* const from : {"firmware", "parent", "nobody", "attribute", "host"}) {
    const std::string place = injected + from;
    inventory.usbDevices.push_back(UsbDeviceAt(place, true, from));
    inventory.captureDevices.push_back(NodeAt("node", place, "reason"));
  }
  inventory.captureDevices.push_back(NodeAt("node", "", "reason"));
  inventory.captureDevices.push_back(NodeAt("node", "", isSelected ? "" : "reason"));
  inventory.captureDevices.back().isUsb = true;
  inventory.otherNodes.push_back(NodeAt("node", "", "reason"));
  for (auto* const nodes : {&inventory.captureDevices, &inventory.otherNodes}) {
    for (VideoNodeInfo& node : *nodes) {
      node.openIn = {"program"};
      node.openError = "error";
    }
  }
  for (std::string* const text : TextsOf(inventory)) {
    // Places have the injected text already and must stay equal; the selected camera must keep its empty
    // reason.
    if (text->find(injected) == std::string::npos && !text->empty()) {
      *text = injected;
    }
  }
  for (UsbDeviceInfo& device : inventory.usbDevices) {
    device.removabilityHub = injected;
    device.connectType = injected;
  }
  return inventory;
}

TEST(Doctor, PrintsNoControlCharacters) {
  for (const std::string injected : {"\x1b]0;x\a", "a\x7f", "\u009b31m", "\r\t"}) {
    ASSERT_TRUE(HasControlCharacters(injected));
    for (const LibraryResult& answer :
         {LibraryResult{kOffered, ""}, LibraryResult{{}, injected},
          LibraryResult{Capabilities{injected, {{1, 1}}, {}}, ""}, LibraryResult{}}) {
      for (const bool isSelected : {true, false}) {
        const DeviceInventory inventory = InventoryWith(injected, isSelected);
        const std::string text = DoctorText(inventory, MakeDoctorReport(inventory, answer, kTestSystem));
        EXPECT_FALSE(HasControlCharacters(text)) << text;
      }
    }
  }
  DeviceInventory inventory = InventoryWith("\x1b", false);
  inventory.usbDevices[0].hasVideo = true;
  inventory.captureDevices.clear();
  EXPECT_THAT(AdviceFor(inventory), Contains(HasSubstr("USB device ?firmware is a camera")));
}

TEST(DoctorJson, HasAllMembers) {
  DeviceInventory inventory = Laptop();
  inventory.usbDevices[0].connectType = "hardwired";
  inventory.usbDevices[0].attribute = "fixed";
  inventory.usbDevices[0].firstFunction = "USB\\1";
  inventory.usbDevices[1].hasVideo.reset();
  inventory.captureDevices[1].openError = "Permission denied";
  inventory.captureDevices[1].openIn = {"firefox (1)"};
  const LibraryResult answer{Capabilities{"0", {{640, 480}}, {7500}}, ""};
  EXPECT_EQ(
      DoctorJson(inventory, answer, MakeDoctorReport(inventory, answer)),
      R"({"offered":true,)"
      R"("conclusion":"Offered camera: Camera (/dev/video0), 640x480, 7.5 fps",)"
      R"("advice":["'nuveqcam probe' measures what each size delivers"],)"
      R"("failure":null,"camera":{"id":"0","sizes":[{"width":640,"height":480}],"rates":[7.5]},)"
      R"("usbDevices":[{"place":"1-5","name":"Camera 1-5","model":"04f2:b6be","id":"ID 1-5","hub":false,)"
      R"("video":true,"removable":false,"verdictFrom":"firmware","verdict":"according to firmware",)"
      R"("connectType":"hardwired","attribute":"fixed","verdictHub":null,"firstFunction":"USB\\1"},)"
      R"({"place":"1-6.10","name":"Camera 1-6.10","model":"04f2:b6be","id":"ID 1-6.10","hub":false,)"
      R"("video":null,"removable":true,"verdictFrom":"hub","verdict":"according to hub","connectType":null,)"
      R"("attribute":null,"verdictHub":"1-6","firstFunction":null}],)"
      R"("captureDevices":[{"taken":true,"node":"/dev/video0","name":"Camera","usbDevice":"1-5",)"
      R"("reason":null,"openError":null,"openIn":[]},)"
      R"({"taken":false,"node":"/dev/video10","name":"Camera","usbDevice":"1-6.10",)"
      R"-("reason":"it is plugged in","openError":"Permission denied","openIn":["firefox (1)"]}],)-"
      R"("otherNodes":[{"node":"/dev/video1","name":"Camera","usbDevice":"1-5",)"
      R"("reason":"it carries metadata","openError":null,"openIn":[]}]})"
      "\n");
}

TEST(DoctorJson, EscapesAllTexts) {
  const auto write = [](const DeviceInventory& inventory, const LibraryResult& answer) {
    return DoctorJson(inventory, answer, MakeDoctorReport(inventory, answer, kTestSystem));
  };
  DeviceInventory inventory = InventoryWith("text", false);
  for (std::string* const text : TextsOf(inventory)) {
    const std::string kept = std::exchange(*text, "\"\x1b");
    const std::string json = write(inventory, {});
    EXPECT_THAT(json, HasSubstr(R"("\"\u001b")")) << kept;
    EXPECT_FALSE(HasControlCharacters(json)) << kept;
    *text = kept;
  }
  EXPECT_THAT(write(inventory, {{}, "\"\x1b"}), HasSubstr(R"("failure":"\"\u001b")"));
  EXPECT_THAT(write(inventory, {Capabilities{"\"\x1b", {{1, 1}}, {}}, ""}), HasSubstr(R"("id":"\"\u001b")"));
}

TEST(DoctorJson, IsAnObjectAlsoWithoutACamera) {
  const LibraryResult answer{{}, "it is in use"};
  const std::string json = DoctorJson(Laptop(), answer, MakeDoctorReport(Laptop(), answer));
  EXPECT_THAT(json, HasSubstr(R"("offered":false,)"));
  EXPECT_THAT(json, HasSubstr(R"("advice":["it is in use"],"failure":"it is in use","camera":null,)"));
}

}  // namespace
}  // namespace nuveqcam
