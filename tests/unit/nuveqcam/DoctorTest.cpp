// What the doctor concludes and advises.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "DoctorPcs.h"

namespace doctor_pcs {
namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;

TEST(Conclusion, IsTheCameraThatIsOffered) {
  const DoctorReport report = Conclude(Laptop(), {Capabilities{"0", {{640, 480}}, {30000}}, ""});
  EXPECT_EQ(report.code, ExitCode::kOk);
  EXPECT_EQ(report.conclusion, "The camera that is offered: Camera (/dev/video0), 640x480, 30 fps");
  EXPECT_THAT(report.advice, IsEmpty());
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
  EXPECT_THAT(report.conclusion,
              HasSubstr("Camera (/dev/video0) is built in, but it offers no picture size"));
  EXPECT_THAT(report.advice, SizeIs(1));
}

TEST(Conclusion, SaysWhyTheNodeOfTheCameraCannotBeOpened) {
  DeviceInventory pc = Laptop();
  pc.captureDevices[0].openError = "Operation not permitted";
  pc.captureDevices[0].openAdvice = "hand it in";
  EXPECT_THAT(
      Conclude(pc, {{}, "cannot read it"}).advice,
      ElementsAre("cannot read it", "/dev/video0 cannot be opened (Operation not permitted): hand it in"));
  EXPECT_THAT(Conclude(pc, {{}, "cannot read it: hand it in"}).advice,
              ElementsAre("cannot read it: hand it in"));
}

TEST(Conclusion, SaysThatTheLibraryAndTheSurveyDiffer) {
  const DoctorReport report = Conclude(Laptop(), {});
  EXPECT_EQ(report.code, ExitCode::kNoCamera);
  EXPECT_THAT(report.conclusion, HasSubstr("looks built in, but the library did not take it"));
  EXPECT_THAT(
      DoctorText(Laptop(), report),
      AllOf(HasSubstr("would be taken: the first camera of USB device 1-5"), Not(HasSubstr("TAKEN"))));
  EXPECT_THAT(DoctorJson(Laptop(), {}, report),
              AllOf(HasSubstr(R"("reason":"the library did not take it, though it looks built in")"),
                    Not(HasSubstr(R"("taken":true)"))));
}

TEST(Conclusion, SaysThatTheCameraOfTheLibraryHasGone) {
  const std::string hint = "it has gone while this looked: run this again";
  const DoctorReport offered = Conclude({}, {Capabilities{"0", {{640, 480}}, {}}, ""});
  EXPECT_EQ(offered.code, ExitCode::kOk);
  EXPECT_EQ(offered.conclusion, "The camera that is offered: camera 0, 640x480");
  EXPECT_THAT(offered.advice, ElementsAre(hint));
  const DoctorReport failed = Conclude({}, {{}, "cannot read it"});
  EXPECT_EQ(failed.code, ExitCode::kCannotOpen);
  EXPECT_EQ(failed.conclusion, "No camera is offered: the library took a camera, but it cannot be read");
  EXPECT_THAT(failed.advice, ElementsAre("cannot read it", hint));
  const DoctorReport useless = Conclude({}, {Capabilities{"0", {}, {}}, ""});
  EXPECT_EQ(useless.conclusion,
            "No camera is offered: the library took a camera, but it offers no picture size");
  EXPECT_THAT(useless.advice, Contains(hint));
}

TEST(Conclusion, IsOfOnePcWhereTheLibraryAndTheSurveyAgree) {
  EXPECT_TRUE(Agree(Laptop(), {kOffered, ""}));
  EXPECT_TRUE(Agree(Laptop(), {{}, "cannot read it"}));
  EXPECT_TRUE(Agree({}, {}));
  EXPECT_FALSE(Agree(Laptop(), {}));
  EXPECT_FALSE(Agree({}, {kOffered, ""}));
  EXPECT_FALSE(Agree({}, {{}, "cannot read it"}));
}

TEST(Conclusion, CountsTheCaptureDevicesThatAreNotBuiltIn) {
  DeviceInventory pc = OneCamera(UsbDeviceAt("1-6", true, "firmware"));
  EXPECT_EQ(Conclude(pc, {}).code, ExitCode::kNoCamera);
  EXPECT_EQ(Conclude(pc, {}).conclusion,
            "No camera is offered: the only capture device is not a USB camera that is built in");
  pc.captureDevices.push_back(pc.captureDevices.front());
  EXPECT_EQ(Conclude(pc, {}).conclusion,
            "No camera is offered: none of the 2 capture devices is a USB camera that is built in");
}

TEST(DoctorsAdvice, GoesByWhoSaysThatTheDeviceCanBeRemoved) {
  const std::string head = "if Camera (/dev/video0) is inside the PC, ";
  const std::string describe =
      head + "ask the PC's maker for firmware that describes the port of USB device 1-6 (ACPI _UPC and _PLD)";
  const std::string correct = head +
                              "the firmware describes the port of USB device 1-6 wrongly (ACPI _UPC and "
                              "_PLD): ask the PC's maker for an update";
  for (const char* const from : {"nobody", "hub", "attribute"}) {
    EXPECT_THAT(AdviceFor(OneCamera(UsbDeviceAt("1-6", true, from))), Contains(describe)) << from;
  }
  for (const char* const from : {"firmware", "windows"}) {
    EXPECT_THAT(AdviceFor(OneCamera(UsbDeviceAt("1-6", true, from))), Contains(correct)) << from;
  }
  UsbDeviceInfo contradicted = UsbDeviceAt("1-6", true, "attribute");
  contradicted.connectType = "hotplug";
  EXPECT_THAT(AdviceFor(OneCamera(contradicted)), Contains(correct));
  contradicted.connectType = "hardwired";
  EXPECT_THAT(
      AdviceFor(OneCamera(contradicted)),
      Contains(head + "the kernel does not go by what the firmware says of the port of USB device 1-6: "
                      "use a newer kernel"));
  EXPECT_THAT(AdviceFor(OneCamera(UsbDeviceAt("1-6", true, "missing"))), Contains(head + "look elsewhere"));
  UsbDeviceInfo onHub = UsbDeviceAt("1-6.2", true, "parent");
  onHub.verdictHub = "1-6";
  EXPECT_THAT(AdviceFor(OneCamera(onHub)),
              Contains(head + "ask the PC's maker for firmware that says that hub 1-6 "
                              "stays (ACPI _UPC and _PLD of its port)"));
  EXPECT_THAT(AdviceFor(OneCamera(UsbDeviceAt("1-6", true, "host"))),
              Contains(head + "correct the host program's list of devices"));
}

TEST(DoctorsAdvice, SaysWhatCanNeverBeUsed) {
  DeviceInventory second = OneCamera(UsbDeviceAt("1-6", false, "firmware"));
  second.captureDevices[0].reason = "it is not the first camera of its USB device";
  EXPECT_THAT(AdviceFor(second),
              Contains("Camera (/dev/video0) cannot be used: it is not the first camera of its USB device"));
  DeviceInventory pc;
  pc.captureDevices = {NodeAt("/dev/video0", "", "it is not a USB device")};
  EXPECT_THAT(AdviceFor(pc),
              Contains("Camera (/dev/video0) cannot be used: the library takes nothing but USB "
                       "cameras that are built in"));
  // Of a USB device that is not known.
  pc.captureDevices[0].isUsb = true;
  pc.captureDevices[0].reason = "it is not the first camera of its USB device";
  EXPECT_THAT(AdviceFor(pc),
              Contains("Camera (/dev/video0) cannot be used: it is not the first camera of its USB device"));
}

TEST(DoctorsAdvice, SaysWhyACameraHasNoCaptureDevice) {
  DeviceInventory pc;
  pc.usbDevices = {UsbDeviceAt("1-6", false, "firmware")};
  pc.otherNodes = {NodeAt("/dev/video0", "1-6", "it delivers grey"),
                   NodeAt("/dev/video1", "1-6", "it carries metadata")};
  EXPECT_THAT(AdviceFor(pc), Contains("Camera (/dev/video0) cannot be used: it delivers grey"));
  EXPECT_THAT(AdviceFor(pc), Not(Contains(HasSubstr("metadata"))));
  pc.captureDevices = {NodeAt("/dev/video2", "1-6", "it is not the first camera of its USB device")};
  EXPECT_THAT(AdviceFor(pc), Not(Contains(HasSubstr("it delivers grey"))));
}

TEST(DoctorsAdvice, HasOneLineForAllThatAreNotOnUsb) {
  DeviceInventory pc = OneCamera(UsbDeviceAt("1-6", true, "nobody"));
  for (int i = 1; i <= 48; ++i) {
    pc.captureDevices.push_back(NodeAt("/dev/video" + std::to_string(i), "", "it is not a USB device"));
  }
  const std::vector<std::string> advice = AdviceFor(pc);
  EXPECT_THAT(advice, SizeIs(4));
  EXPECT_THAT(advice, Contains(HasSubstr("if Camera (/dev/video0) is inside the PC")));
  EXPECT_THAT(advice,
              Contains("48 capture devices are no USB devices (cameras on MIPI, virtual cameras, test "
                       "devices): the library takes nothing but USB cameras that are built in"));
}

TEST(DoctorsAdvice, NamesNodesThatCannotBeOpened) {
  DeviceInventory pc = OneCamera(UsbDeviceAt("1-6", true, "nobody"));
  pc.otherNodes = {NodeAt("/dev/video1", "1-6", "it cannot be opened")};
  pc.captureDevices[0].openError = "Permission denied";
  pc.captureDevices[0].openAdvice = "ask for it";
  pc.otherNodes[0].openError = "No such device";
  pc.otherNodes[0].openAdvice = "look for it";
  const std::vector<std::string> advice = AdviceFor(pc);
  EXPECT_THAT(advice, Contains("/dev/video0 cannot be opened (Permission denied): ask for it"));
  EXPECT_THAT(advice, Contains("/dev/video1 cannot be opened (No such device): look for it"));
}

TEST(DoctorsAdvice, NamesNodesThatFailAlikeInOneLine) {
  DeviceInventory pc = Laptop();
  pc.captureDevices.erase(pc.captureDevices.begin());
  for (VideoNodeInfo* const node : {&pc.captureDevices[0], &pc.otherNodes[0]}) {
    node->openError = "Permission denied";
    node->openAdvice = "ask for it";
  }
  EXPECT_THAT(AdviceFor(pc),
              Contains("/dev/video10, /dev/video1 cannot be opened (Permission denied): ask for it"));
}

TEST(DoctorsAdvice, NamesCamerasWithoutADriver) {
  const std::string line =
      "USB device 1-6 is a camera, but no driver has made a capture device of it: load it";
  DeviceInventory pc;
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

}  // namespace
}  // namespace doctor_pcs
