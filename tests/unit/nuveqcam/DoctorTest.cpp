// Conclusion and advice of doctor.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "DoctorInventories.h"

namespace nuveqcam {
namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::SizeIs;

TEST(DoctorConclusion, NamesTheOfferedCamera) {
  const DoctorReport report = MakeDoctorReport(Laptop(), {Capabilities{"0", {{640, 480}}, {30000}}, ""});
  EXPECT_EQ(report.code, ExitCode::kOk);
  EXPECT_EQ(report.conclusion, "Offered camera: Camera (/dev/video0), 640x480, 30 fps");
  EXPECT_THAT(report.advice, ElementsAre("'nuveqcam probe' measures what each size delivers"));
}

TEST(DoctorConclusion, DistinguishesAnUnreadableCameraFromNone) {
  const DoctorReport report =
      MakeDoctorReport(Laptop(), {{}, "cannot read it: it is in use; close the other one"});
  EXPECT_EQ(report.code, ExitCode::kCannotOpen);
  EXPECT_EQ(report.conclusion,
            "No camera is offered: Camera (/dev/video0) is built in, but it cannot be read");
  EXPECT_THAT(report.advice, ElementsAre("cannot read it: it is in use; close the other one"));
}

TEST(DoctorConclusion, DistinguishesACameraWithoutSizesFromNone) {
  const DoctorReport report = MakeDoctorReport(Laptop(), {Capabilities{"0", {}, {}}, ""});
  EXPECT_EQ(report.code, ExitCode::kCannotOpen);
  EXPECT_THAT(report.conclusion, HasSubstr("Camera (/dev/video0) is built in, but it has no picture sizes"));
  EXPECT_THAT(report.advice, SizeIs(1));
}

TEST(DoctorConclusion, HasTheOpenErrorOfTheCamera) {
  DeviceInventory inventory = Laptop();
  inventory.captureDevices[0].openError = "Operation not permitted";
  inventory.captureDevices[0].openAdvice = "allow it";
  EXPECT_THAT(
      MakeDoctorReport(inventory, {{}, "cannot read it"}).advice,
      ElementsAre("cannot read it", "/dev/video0 cannot be opened (Operation not permitted): allow it"));
  EXPECT_THAT(MakeDoctorReport(inventory, {{}, "cannot read it: allow it"}).advice,
              ElementsAre("cannot read it: allow it"));
}

TEST(DoctorConclusion, ReportsADifferenceBetweenLibraryAndInventory) {
  const DoctorReport report = MakeDoctorReport(Laptop(), {});
  EXPECT_EQ(report.code, ExitCode::kNoCamera);
  EXPECT_THAT(report.conclusion, HasSubstr("looks built in, but the library did not select it"));
  EXPECT_THAT(
      DoctorText(Laptop(), report),
      AllOf(HasSubstr("would be selected: the first camera of USB device 1-5"), Not(HasSubstr("SELECTED"))));
  EXPECT_THAT(DoctorJson(Laptop(), {}, report),
              AllOf(HasSubstr(R"("reason":"the library did not select it, although it looks built in")"),
                    Not(HasSubstr(R"("taken":true)"))));
}

TEST(DoctorConclusion, ReportsThatTheLibrarysCameraWasRemoved) {
  const std::string hint = "the device was removed during this check: run it again";
  const DoctorReport offered = MakeDoctorReport({}, {Capabilities{"0", {{640, 480}}, {}}, ""});
  EXPECT_EQ(offered.code, ExitCode::kOk);
  EXPECT_EQ(offered.conclusion, "Offered camera: camera 0, 640x480");
  EXPECT_THAT(offered.advice, ElementsAre(hint));
  const DoctorReport failed = MakeDoctorReport({}, {{}, "cannot read it"});
  EXPECT_EQ(failed.code, ExitCode::kCannotOpen);
  EXPECT_EQ(failed.conclusion, "No camera is offered: the library selected a camera, but it cannot be read");
  EXPECT_THAT(failed.advice, ElementsAre("cannot read it", hint));
  const DoctorReport useless = MakeDoctorReport({}, {Capabilities{"0", {}, {}}, ""});
  EXPECT_EQ(useless.conclusion,
            "No camera is offered: the library selected a camera, but it has no picture sizes");
  EXPECT_THAT(useless.advice, Contains(hint));
}

TEST(DoctorConclusion, DetectsInconsistentResults) {
  EXPECT_TRUE(AreConsistent(Laptop(), {kOffered, ""}));
  EXPECT_TRUE(AreConsistent(Laptop(), {{}, "cannot read it"}));
  EXPECT_TRUE(AreConsistent({}, {}));
  EXPECT_FALSE(AreConsistent(Laptop(), {}));
  EXPECT_FALSE(AreConsistent({}, {kOffered, ""}));
  EXPECT_FALSE(AreConsistent({}, {{}, "cannot read it"}));
}

TEST(DoctorConclusion, CountsDevicesThatAreNotBuiltIn) {
  DeviceInventory inventory = OneCamera(UsbDeviceAt("1-6", true, "firmware"));
  EXPECT_EQ(MakeDoctorReport(inventory, {}).code, ExitCode::kNoCamera);
  EXPECT_EQ(MakeDoctorReport(inventory, {}).conclusion,
            "No camera is offered: the only capture device is not a built-in USB camera");
  inventory.captureDevices.push_back(inventory.captureDevices.front());
  EXPECT_EQ(MakeDoctorReport(inventory, {}).conclusion,
            "No camera is offered: none of the 2 capture devices is a built-in USB camera");
}

TEST(DoctorAdvice, DependsOnTheSourceOfRemovability) {
  const std::string head = "if Camera (/dev/video0) is inside the PC, ";
  const std::string describe =
      head +
      "ask the PC's manufacturer for firmware that describes the port of USB device 1-6 (ACPI _UPC and _PLD)";
  const std::string correct = head +
                              "the firmware describes the port of USB device 1-6 incorrectly (ACPI _UPC and "
                              "_PLD): ask the PC's manufacturer for an update";
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
  EXPECT_THAT(AdviceFor(OneCamera(contradicted)),
              Contains(head + "the kernel ignores the firmware's description of the port of USB device 1-6: "
                              "use a newer kernel"));
  EXPECT_THAT(AdviceFor(OneCamera(UsbDeviceAt("1-6", true, "missing"))),
              Contains(head + "use another system"));
  UsbDeviceInfo onHub = UsbDeviceAt("1-6.2", true, "parent");
  onHub.removabilityHub = "1-6";
  EXPECT_THAT(AdviceFor(OneCamera(onHub)),
              Contains(head + "ask the PC's manufacturer for firmware that declares hub 1-6 "
                              "fixed (ACPI _UPC and _PLD of its port)"));
  EXPECT_THAT(AdviceFor(OneCamera(UsbDeviceAt("1-6", true, "host"))),
              Contains(head + "correct the device list of the host program"));
}

TEST(DoctorAdvice, NamesDevicesThatCannotBeUsed) {
  DeviceInventory second = OneCamera(UsbDeviceAt("1-6", false, "firmware"));
  second.captureDevices[0].reason = "it is not the first camera of its USB device";
  EXPECT_THAT(AdviceFor(second),
              Contains("Camera (/dev/video0) cannot be used: it is not the first camera of its USB device"));
  DeviceInventory inventory;
  inventory.captureDevices = {NodeAt("/dev/video0", "", "it is not a USB device")};
  EXPECT_THAT(AdviceFor(inventory),
              Contains("Camera (/dev/video0) cannot be used: the library supports only built-in "
                       "USB cameras"));
  // The camera's USB device is not in the inventory.
  inventory.captureDevices[0].isUsb = true;
  inventory.captureDevices[0].reason = "it is not the first camera of its USB device";
  EXPECT_THAT(AdviceFor(inventory),
              Contains("Camera (/dev/video0) cannot be used: it is not the first camera of its USB device"));
}

TEST(DoctorAdvice, ExplainsAMissingCaptureDevice) {
  DeviceInventory inventory;
  inventory.usbDevices = {UsbDeviceAt("1-6", false, "firmware")};
  inventory.otherNodes = {NodeAt("/dev/video0", "1-6", "it delivers grey"),
                          NodeAt("/dev/video1", "1-6", "it carries metadata")};
  EXPECT_THAT(AdviceFor(inventory), Contains("Camera (/dev/video0) cannot be used: it delivers grey"));
  EXPECT_THAT(AdviceFor(inventory), Not(Contains(HasSubstr("metadata"))));
  inventory.captureDevices = {NodeAt("/dev/video2", "1-6", "it is not the first camera of its USB device")};
  EXPECT_THAT(AdviceFor(inventory), Not(Contains(HasSubstr("it delivers grey"))));
}

TEST(DoctorAdvice, HasOneLineForAllNonUsbDevices) {
  DeviceInventory inventory = OneCamera(UsbDeviceAt("1-6", true, "nobody"));
  for (int i = 1; i <= 48; ++i) {
    inventory.captureDevices.push_back(
        NodeAt("/dev/video" + std::to_string(i), "", "it is not a USB device"));
  }
  const std::vector<std::string> advice = AdviceFor(inventory);
  EXPECT_THAT(advice, SizeIs(4));
  EXPECT_THAT(advice, Contains(HasSubstr("if Camera (/dev/video0) is inside the PC")));
  EXPECT_THAT(advice, Contains("48 capture devices are not USB devices (MIPI cameras, virtual cameras, test "
                               "devices): the library supports only built-in USB cameras"));
}

TEST(DoctorAdvice, NamesNodesThatCannotBeOpened) {
  DeviceInventory inventory = OneCamera(UsbDeviceAt("1-6", true, "nobody"));
  inventory.otherNodes = {NodeAt("/dev/video1", "1-6", "it cannot be opened")};
  inventory.captureDevices[0].openError = "Permission denied";
  inventory.captureDevices[0].openAdvice = "request it";
  inventory.otherNodes[0].openError = "No such device";
  inventory.otherNodes[0].openAdvice = "look for it";
  const std::vector<std::string> advice = AdviceFor(inventory);
  EXPECT_THAT(advice, Contains("/dev/video0 cannot be opened (Permission denied): request it"));
  EXPECT_THAT(advice, Contains("/dev/video1 cannot be opened (No such device): look for it"));
}

TEST(DoctorAdvice, GroupsNodesWithTheSameError) {
  DeviceInventory inventory = Laptop();
  inventory.captureDevices.erase(inventory.captureDevices.begin());
  for (VideoNodeInfo* const node : {&inventory.captureDevices[0], &inventory.otherNodes[0]}) {
    node->openError = "Permission denied";
    node->openAdvice = "request it";
  }
  EXPECT_THAT(AdviceFor(inventory),
              Contains("/dev/video10, /dev/video1 cannot be opened (Permission denied): request it"));
}

TEST(DoctorAdvice, NamesCamerasWithoutADriver) {
  const std::string line =
      "USB device 1-6 is a camera, but no driver has created a capture device for it: load a driver";
  DeviceInventory inventory;
  inventory.usbDevices = {UsbDeviceAt("1-6", false, "firmware")};
  EXPECT_THAT(AdviceFor(inventory), Contains(line));
  inventory.otherNodes = {NodeAt("/dev/video0", "1-6", "it carries metadata")};
  EXPECT_THAT(AdviceFor(inventory), Not(Contains(line)));
  inventory.otherNodes.clear();
  inventory.captureDevices = {NodeAt("/dev/video0", "1-6", "it is removable")};
  EXPECT_THAT(AdviceFor(inventory), Not(Contains(line)));
  inventory.captureDevices.clear();
  inventory.usbDevices[0].isHub = true;
  EXPECT_THAT(AdviceFor(inventory), Not(Contains(line)));
  inventory.usbDevices[0].isHub = false;
  inventory.usbDevices[0].hasVideo = false;
  EXPECT_THAT(AdviceFor(inventory), Not(Contains(line)));
  inventory.usbDevices[0].hasVideo.reset();
  EXPECT_THAT(AdviceFor(inventory), Not(Contains(line)));
}

}  // namespace
}  // namespace nuveqcam
