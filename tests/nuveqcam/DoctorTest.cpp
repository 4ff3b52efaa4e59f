#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "DoctorReport.h"

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

constexpr SystemTraits kDoctorSystem{.withoutDriver = "load it", .withoutCamera = "buy one"};

SurveyedUsbDevice UsbDeviceAt(const std::string& place, bool isRemovable, const std::string& from) {
  SurveyedUsbDevice device;
  device.place = place;
  device.name = "Camera " + place;
  device.model = "04f2:b6be";
  device.id = "ID " + place;
  device.hasVideo = true;
  device.isRemovable = isRemovable;
  device.verdictFrom = from;
  device.verdict = "said by " + from;
  return device;
}

SurveyedNode NodeAt(const std::string& node, const std::string& usbPlace, const std::string& reason) {
  SurveyedNode device;
  device.node = node;
  device.name = "Camera";
  device.usbPlace = usbPlace;
  device.reason = reason;
  return device;
}

PcSurvey Laptop() {
  PcSurvey pc;
  pc.usbDevices = {UsbDeviceAt("1-5", false, "firmware"), UsbDeviceAt("1-6.10", true, "hub")};
  pc.usbDevices[1].verdictHub = "1-6";
  pc.captureDevices = {NodeAt("/dev/video0", "1-5", ""),
                       NodeAt("/dev/video10", "1-6.10", "it is plugged in")};
  pc.otherNodes = {NodeAt("/dev/video1", "1-5", "it carries metadata")};
  return pc;
}

PcSurvey OneCamera(const SurveyedUsbDevice& usbDevice) {
  PcSurvey pc;
  pc.usbDevices = {usbDevice};
  pc.captureDevices = {NodeAt("/dev/video0", usbDevice.place, "of no matter here")};
  return pc;
}

const Capabilities kOffered{"0", {{320, 240}, {1280, 720}, {640, 480}}, {30000, 7500}};

std::vector<std::string> AdviceFor(const PcSurvey& pc) { return Conclude(pc, {}, kDoctorSystem).advice; }

TEST(Doctor, ShowsDevicesInTablesAndConcludes) {
  PcSurvey pc = Laptop();
  pc.usbDevices.push_back(UsbDeviceAt("1-6", true, "nobody"));
  pc.usbDevices[2].isHub = true;
  pc.usbDevices[2].name = "";
  pc.usbDevices[2].model = "";
  pc.captureDevices[1].openError = "Permission denied";
  pc.captureDevices[0].openIn = {"firefox (1)", "ffmpeg (22)"};
  EXPECT_EQ(DoctorText(pc, Conclude(pc, {kOffered, ""}, kDoctorSystem)),
            "USB devices\n"
            "  1-5     Camera 1-5 (04f2:b6be)     said by firmware\n"
            "  1-6.10  Camera 1-6.10 (04f2:b6be)  said by hub\n"
            "  1-6     hub                        said by nobody\n"
            "\n"
            "Capture devices\n"
            "  /dev/video0   Camera  TAKEN: the first function of USB device 1-5, which is built in; open in "
            "firefox (1); open in ffmpeg (22)\n"
            "  /dev/video10  Camera  not taken: it is plugged in; cannot be opened: Permission denied\n"
            "  /dev/video1   Camera  not a capture device: it carries metadata\n"
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

TEST(Doctor, ShowsNoControlCharactersOfDevices) {
  PcSurvey pc = Laptop();
  for (std::string* const text :
       {&pc.usbDevices[0].name, &pc.usbDevices[0].place, &pc.captureDevices[0].name,
        &pc.captureDevices[0].node, &pc.captureDevices[1].reason, &pc.captureDevices[1].openError,
        &pc.otherNodes[0].reason, &pc.usbDevices[1].verdictHub}) {
    *text = "\x1b]0;x\a";
  }
  pc.captureDevices[0].openIn = {"\x1b[2J"};
  const auto isSteering = [](char c) { return c != '\n' && c >= 0 && c < ' '; };
  for (const LibraryAnswer& answer : {LibraryAnswer{kOffered, ""}, LibraryAnswer{{}, "\x1b"}}) {
    const std::string text = DoctorText(pc, Conclude(pc, answer, kDoctorSystem));
    EXPECT_TRUE(std::none_of(text.begin(), text.end(), isSteering)) << text;
  }
  pc.captureDevices[0].reason = "\x1b";
  const std::string text = DoctorText(pc, Conclude(pc, {}, kDoctorSystem));
  EXPECT_TRUE(std::none_of(text.begin(), text.end(), isSteering)) << text;
}

TEST(Conclusion, IsTheCameraThatIsOffered) {
  const DoctorReport report = Conclude(Laptop(), {Capabilities{"0", {{640, 480}}, {30000}}, ""});
  EXPECT_EQ(report.code, ExitCode::kOk);
  EXPECT_EQ(report.conclusion, "The camera that is offered: Camera (/dev/video0), 640x480, 30 fps");
  EXPECT_THAT(report.advice, IsEmpty());
  EXPECT_EQ(Conclude({}, {Capabilities{"0", {{640, 480}}, {}}, ""}).conclusion,
            "The camera that is offered: camera 0, 640x480");
}

TEST(Conclusion, TellsACameraThatCannotBeReadFromNone) {
  const DoctorReport report = Conclude(Laptop(), {{}, "cannot read it: it is in use; close the other one"});
  EXPECT_EQ(report.code, ExitCode::kCannotOpen);
  EXPECT_EQ(report.conclusion,
            "No camera is offered: Camera (/dev/video0) is built in, but it cannot be read");
  EXPECT_THAT(report.advice, ElementsAre("cannot read it: it is in use; close the other one"));
}

TEST(Conclusion, TellsACameraWithoutSizesFromNone) {
  const DoctorReport report = Conclude(Laptop(), {Capabilities{"0", {}, {}}, ""});
  EXPECT_EQ(report.code, ExitCode::kCannotOpen);
  EXPECT_THAT(report.conclusion, HasSubstr("Camera (/dev/video0) is built in, but offers no picture size"));
  EXPECT_THAT(report.advice, SizeIs(1));
}

TEST(Conclusion, SaysThatTheLibraryAndTheSurveyDiffer) {
  const DoctorReport report = Conclude(Laptop(), {});
  EXPECT_EQ(report.code, ExitCode::kNoCamera);
  EXPECT_THAT(report.conclusion, HasSubstr("looks built in, but the library did not take it"));
}

TEST(Conclusion, CountsTheCaptureDevicesThatAreNotBuiltIn) {
  PcSurvey pc = OneCamera(UsbDeviceAt("1-6", true, "firmware"));
  EXPECT_EQ(Conclude(pc, {}).code, ExitCode::kNoCamera);
  EXPECT_EQ(Conclude(pc, {}).conclusion,
            "No camera is offered: the only capture device is not a built-in camera");
  pc.captureDevices.push_back(pc.captureDevices.front());
  EXPECT_EQ(Conclude(pc, {}).conclusion,
            "No camera is offered: none of the 2 capture devices is a built-in camera");
}

TEST(DoctorsAdvice, GoesByWhoSaysThatTheDeviceCanBeRemoved) {
  const std::string head = "if Camera (/dev/video0) is inside the PC, ";
  const std::string describe =
      head + "ask the PC's maker for firmware that describes the port of USB device 1-6 (ACPI _UPC and _PLD)";
  const std::string correct = head +
                              "the firmware describes the port of USB device 1-6 wrongly (ACPI _UPC and "
                              "_PLD): ask the PC's maker for an update";
  for (const char* const from : {"nobody", "missing", "hub"}) {
    EXPECT_THAT(AdviceFor(OneCamera(UsbDeviceAt("1-6", true, from))), Contains(describe)) << from;
  }
  for (const char* const from : {"firmware", "attribute", "windows"}) {
    EXPECT_THAT(AdviceFor(OneCamera(UsbDeviceAt("1-6", true, from))), Contains(correct)) << from;
  }
  SurveyedUsbDevice onHub = UsbDeviceAt("1-6.2", true, "parent");
  onHub.verdictHub = "1-6";
  EXPECT_THAT(AdviceFor(OneCamera(onHub)),
              Contains(head + "ask the PC's maker for firmware that says that hub 1-6 "
                              "stays (ACPI _UPC and _PLD of its port)"));
  EXPECT_THAT(AdviceFor(OneCamera(UsbDeviceAt("1-6", true, "host"))),
              Contains(head + "correct the host program's list of devices"));
}

TEST(DoctorsAdvice, SaysWhatCanNeverBeUsed) {
  EXPECT_THAT(AdviceFor(OneCamera(UsbDeviceAt("1-6", false, "firmware"))),
              Contains(HasSubstr("nothing but the first function of a USB device")));
  PcSurvey pc;
  pc.captureDevices = {NodeAt("/dev/video0", "", "it is not a USB device")};
  EXPECT_THAT(AdviceFor(pc), Contains(HasSubstr("nothing but USB cameras that are built in")));
}

TEST(DoctorsAdvice, NamesNodesThatCannotBeOpened) {
  PcSurvey pc = OneCamera(UsbDeviceAt("1-6", true, "nobody"));
  pc.otherNodes = {NodeAt("/dev/video1", "1-6", "it cannot be opened")};
  pc.captureDevices[0].openError = "Permission denied";
  pc.captureDevices[0].openAdvice = "ask for it";
  pc.otherNodes[0].openError = "No such device";
  pc.otherNodes[0].openAdvice = "look for it";
  const std::vector<std::string> advice = AdviceFor(pc);
  EXPECT_THAT(advice, Contains("/dev/video0 cannot be opened (Permission denied): ask for it"));
  EXPECT_THAT(advice, Contains("/dev/video1 cannot be opened (No such device): look for it"));
}

TEST(DoctorsAdvice, NamesCamerasWithoutADriver) {
  const std::string line =
      "USB device 1-6 is a camera, but no driver has made a capture device of it: load it";
  PcSurvey pc;
  pc.usbDevices = {UsbDeviceAt("1-6", false, "firmware")};
  EXPECT_THAT(AdviceFor(pc), Contains(line));
  pc.otherNodes = {NodeAt("/dev/video0", "1-6", "it carries metadata")};
  EXPECT_THAT(AdviceFor(pc), Not(Contains(line)));
  pc.otherNodes.clear();
  pc.captureDevices = {NodeAt("/dev/video0", "1-6", "it is removable")};
  EXPECT_THAT(AdviceFor(pc), Not(Contains(line)));
  pc.captureDevices.clear();
  pc.usbDevices[0].isHub = true;
  EXPECT_THAT(AdviceFor(pc), Not(Contains(line)));
  pc.usbDevices[0].isHub = false;
  pc.usbDevices[0].hasVideo = false;
  EXPECT_THAT(AdviceFor(pc), Not(Contains(line)));
  pc.usbDevices[0].hasVideo.reset();
  EXPECT_THAT(AdviceFor(pc), Not(Contains(line)));
}

TEST(DoctorsJson, HasEverything) {
  PcSurvey pc = Laptop();
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

TEST(DoctorsJson, IsAnObjectWithoutACameraToo) {
  const LibraryAnswer answer{{}, "it is in use"};
  const std::string json = DoctorJson(Laptop(), answer, Conclude(Laptop(), answer));
  EXPECT_THAT(json, HasSubstr(R"("offered":false,)"));
  EXPECT_THAT(json, HasSubstr(R"("advice":["it is in use"],"failure":"it is in use","camera":null,)"));
}

}  // namespace
