// What the doctor prints.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

#include "DoctorPcs.h"

namespace doctor_pcs {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;

TEST(Doctor, ShowsDevicesInTablesAndConcludes) {
  DeviceInventory pc = Laptop();
  pc.usbDevices.push_back(UsbDeviceAt("1-6", true, "nobody"));
  pc.usbDevices[2].isHub = true;
  pc.usbDevices[2].name = "";
  pc.usbDevices[2].model = "";
  pc.captureDevices[1].openError = "Permission denied";
  pc.captureDevices[0].openIn = {"firefox (1)", "ffmpeg (22)"};
  pc.otherNodes.push_back(NodeAt("/dev/video2", "1-5", "it was not asked"));
  pc.otherNodes[1].openError = "Permission denied";
  EXPECT_EQ(DoctorText(pc, Conclude(pc, {kOffered, ""}, kDoctorSystem)),
            "USB devices\n"
            "  1-5     Camera 1-5 (04f2:b6be)     said by firmware\n"
            "  1-6.10  Camera 1-6.10 (04f2:b6be)  said by hub\n"
            "  1-6     hub                        said by nobody\n"
            "\n"
            "Capture devices\n"
            "  /dev/video0   Camera  TAKEN: the first camera of USB device 1-5, which is built in; open in "
            "firefox (1); open in ffmpeg (22)\n"
            "  /dev/video10  Camera  not taken: it is plugged in; cannot be opened: Permission denied\n"
            "  /dev/video1   Camera  not a capture device: it carries metadata\n"
            "  /dev/video2   Camera  not looked into: it was not asked (Permission denied)\n"
            "\n"
            "The camera that is offered: Camera (/dev/video0), 320x240 to 1280x720, 7.5 to 30 fps\n");
}

TEST(Doctor, ShowsAPcWithoutDevices) {
  EXPECT_EQ(
      DoctorText({}, Conclude({}, {}, kDoctorSystem)),
      "USB devices\n"
      "  none seen\n"
      "\n"
      "Capture devices\n"
      "  none seen\n"
      "\n"
      "No camera is offered: no capture device was seen\n"
      "  - switch the camera on if the PC has one: by a key, a switch or a shutter on the PC, or in its "
      "BIOS setup\n"
      "  - buy one\n");
}

// Every text of a device, and where it is: what is left of one must not reach a terminal.
std::vector<std::string*> TextsOf(UsbDeviceInfo& device) {
  return {&device.place,       &device.name,      &device.model,      &device.id,           &device.verdict,
          &device.connectType, &device.attribute, &device.verdictHub, &device.firstFunction};
}

std::vector<std::string*> TextsOf(VideoNodeInfo& node) {
  return {&node.node, &node.name, &node.usbPlace, &node.reason, &node.openError, &node.openIn[0]};
}

std::vector<std::string*> TextsOf(DeviceInventory& pc) {
  std::vector<std::string*> texts;
  const auto add = [&texts](auto& device) {
    const std::vector<std::string*> more = TextsOf(device);
    texts.insert(texts.end(), more.begin(), more.end());
  };
  std::for_each(pc.usbDevices.begin(), pc.usbDevices.end(), add);
  std::for_each(pc.captureDevices.begin(), pc.captureDevices.end(), add);
  std::for_each(pc.otherNodes.begin(), pc.otherNodes.end(), add);
  return texts;
}

// C0 with ESC, DEL and C1, in UTF-8.
bool IsPoisoned(const std::string& text) {
  return std::any_of(text.begin(), text.end(),
                     [](char c) { return c != '\n' && ((c >= 0 && c < ' ') || c == '\x7f'); }) ||
         text.find("\u009b") != std::string::npos;
}

// Every advice on a device that can be removed, a camera of unknown origin, one that is taken, and a node.
DeviceInventory PoisonedPc(const std::string& poison, bool isTaken) {
  DeviceInventory pc;
  for (const char* const from : {"firmware", "parent", "nobody", "attribute", "host"}) {
    const std::string place = poison + from;
    pc.usbDevices.push_back(UsbDeviceAt(place, true, from));
    pc.captureDevices.push_back(NodeAt("node", place, "reason"));
  }
  pc.captureDevices.push_back(NodeAt("node", "", "reason"));
  pc.captureDevices.push_back(NodeAt("node", "", isTaken ? "" : "reason"));
  pc.captureDevices.back().isUsb = true;
  pc.otherNodes.push_back(NodeAt("node", "", "reason"));
  for (auto* const nodes : {&pc.captureDevices, &pc.otherNodes}) {
    for (VideoNodeInfo& node : *nodes) {
      node.openIn = {"program"};
      node.openError = "error";
    }
  }
  for (std::string* const text : TextsOf(pc)) {
    // The places are poisoned already, and have to agree; the one that is taken has no reason, and keeps
    // none.
    if (text->find(poison) == std::string::npos && !text->empty()) {
      *text = poison;
    }
  }
  for (UsbDeviceInfo& device : pc.usbDevices) {
    device.verdictHub = poison;
    device.connectType = poison;
  }
  return pc;
}

TEST(Doctor, ShowsNoControlCharactersOfDevices) {
  for (const std::string poison : {"\x1b]0;x\a", "a\x7f", "\u009b31m", "\r\t"}) {
    ASSERT_TRUE(IsPoisoned(poison));
    for (const LibraryAnswer& answer :
         {LibraryAnswer{kOffered, ""}, LibraryAnswer{{}, poison},
          LibraryAnswer{Capabilities{poison, {{1, 1}}, {}}, ""}, LibraryAnswer{}}) {
      for (const bool isTaken : {true, false}) {
        const DeviceInventory pc = PoisonedPc(poison, isTaken);
        const std::string text = DoctorText(pc, Conclude(pc, answer, kDoctorSystem));
        EXPECT_FALSE(IsPoisoned(text)) << text;
      }
    }
  }
  DeviceInventory pc = PoisonedPc("\x1b", false);
  pc.usbDevices[0].hasVideo = true;
  pc.captureDevices.clear();
  EXPECT_THAT(AdviceFor(pc), Contains(HasSubstr("USB device ?firmware is a camera")));
}

TEST(DoctorsJson, HasEverything) {
  DeviceInventory pc = Laptop();
  pc.usbDevices[0].connectType = "hardwired";
  pc.usbDevices[0].attribute = "fixed";
  pc.usbDevices[0].firstFunction = "USB\\1";
  pc.usbDevices[1].hasVideo.reset();
  pc.captureDevices[1].openError = "Permission denied";
  pc.captureDevices[1].openIn = {"firefox (1)"};
  const LibraryAnswer answer{Capabilities{"0", {{640, 480}}, {7500}}, ""};
  EXPECT_EQ(
      DoctorJson(pc, answer, Conclude(pc, answer)),
      R"({"offered":true,)"
      R"("conclusion":"The camera that is offered: Camera (/dev/video0), 640x480, 7.5 fps","advice":[],)"
      R"("failure":null,"camera":{"id":"0","sizes":[{"width":640,"height":480}],"rates":[7.5]},)"
      R"("usbDevices":[{"place":"1-5","name":"Camera 1-5","model":"04f2:b6be","id":"ID 1-5","hub":false,)"
      R"("video":true,"removable":false,"verdictFrom":"firmware","verdict":"said by firmware",)"
      R"("connectType":"hardwired","attribute":"fixed","verdictHub":null,"firstFunction":"USB\\1"},)"
      R"({"place":"1-6.10","name":"Camera 1-6.10","model":"04f2:b6be","id":"ID 1-6.10","hub":false,)"
      R"("video":null,"removable":true,"verdictFrom":"hub","verdict":"said by hub","connectType":null,)"
      R"("attribute":null,"verdictHub":"1-6","firstFunction":null}],)"
      R"("captureDevices":[{"taken":true,"node":"/dev/video0","name":"Camera","usbDevice":"1-5",)"
      R"("reason":null,"openError":null,"openIn":[]},)"
      R"({"taken":false,"node":"/dev/video10","name":"Camera","usbDevice":"1-6.10",)"
      R"-("reason":"it is plugged in","openError":"Permission denied","openIn":["firefox (1)"]}],)-"
      R"("otherNodes":[{"node":"/dev/video1","name":"Camera","usbDevice":"1-5",)"
      R"("reason":"it carries metadata","openError":null,"openIn":[]}]})"
      "\n");
}

TEST(DoctorsJson, EscapesEveryText) {
  const auto write = [](const DeviceInventory& pc, const LibraryAnswer& answer) {
    return DoctorJson(pc, answer, Conclude(pc, answer, kDoctorSystem));
  };
  DeviceInventory pc = PoisonedPc("text", false);
  for (std::string* const text : TextsOf(pc)) {
    const std::string kept = std::exchange(*text, "\"\x1b");
    const std::string json = write(pc, {});
    EXPECT_THAT(json, HasSubstr(R"("\"\u001b")")) << kept;
    EXPECT_FALSE(IsPoisoned(json)) << kept;
    *text = kept;
  }
  EXPECT_THAT(write(pc, {{}, "\"\x1b"}), HasSubstr(R"("failure":"\"\u001b")"));
  EXPECT_THAT(write(pc, {Capabilities{"\"\x1b", {{1, 1}}, {}}, ""}), HasSubstr(R"("id":"\"\u001b")"));
}

TEST(DoctorsJson, IsAnObjectWithoutACameraToo) {
  const LibraryAnswer answer{{}, "it is in use"};
  const std::string json = DoctorJson(Laptop(), answer, Conclude(Laptop(), answer));
  EXPECT_THAT(json, HasSubstr(R"("offered":false,)"));
  EXPECT_THAT(json, HasSubstr(R"("advice":["it is in use"],"failure":"it is in use","camera":null,)"));
}

}  // namespace
}  // namespace doctor_pcs
