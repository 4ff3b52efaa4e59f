// The doctor in this process, over PCs whose devices a kernel of the tests' own presents.
#include <cerrno>
#include <sstream>

#include "Commands.h"
#include "LinuxTest.h"

namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::Not;

class DoctorOnPc : public LinuxTest {
 protected:
  ExitCode Run(bool wantsJson = false) {
    Options options;
    options.command = Command::kDoctor;
    options.wantsJson = wantsJson;
    out.str("");
    const ExitCode code = RunTool(options, {out, err});
    EXPECT_EQ(err.str(), "");
    return code;
  }
  // A camera with that verdict, and its node.
  void AddCamera(const std::string& name, int number, const std::string& removable,
                 const std::optional<std::string>& connectType, int interface = 0) {
    UsbNode node{name};
    node.removable = removable;
    node.connectType = connectType;
    if (interface != 0) {
      node.interfaces = {0, interface};
    }
    kernel.Tree().AddUsb(node);
    kernel.Tree().SetUsbAttribute(name, "product", "Camera " + name);
    kernel.Tree().AddVideoOfUsb(number, name + ":1." + std::to_string(interface), "Camera " + name, 0);
    kernel.AddDevice(number);
  }
  void AddHub(const std::string& name, const std::string& removable) {
    kernel.Tree().AddUsb({name, "05e3", "0610", removable, {0}});
    kernel.Tree().SetUsbAttribute(name, "product", "Hub");
    kernel.Tree().SetUsbAttribute(name, "bDeviceClass", "09");
    kernel.Tree().SetUsbAttribute(name + ":1.0", "bInterfaceClass", "09");
  }
  std::string Node(int number) const {
    return (kernel.DevRoot() / ("video" + std::to_string(number))).string();
  }

  std::ostringstream out;
  std::ostringstream err;
};

TEST_F(DoctorOnPc, ExplainsTheCameraThatIsTakenAndTheOthers) {
  AddLaptopCamera();
  kernel.Tree().SetUsbAttribute("1-5", "product", "Integrated Camera");
  AddHub("1-8", "unknown");
  AddCamera("1-8.1", 4, "fixed", "hardwired");
  kernel.Tree().AddVideoOf(5, "platform/vivid.0", "vivid", 0);
  kernel.AddDevice(5);
  AddCamera("1-9", 6, "fixed", "hardwired", 2);
  EXPECT_EQ(Run(), ExitCode::kOk);
  const std::string text = out.str();
  EXPECT_THAT(text,
              HasSubstr("USB devices\n  1-5    Integrated Camera (04f2:b6be)  built in: hub usb1 says"));
  EXPECT_THAT(text, HasSubstr("\n  1-8    Hub (05e3:0610), hub           counts as removable: neither"));
  EXPECT_THAT(text, HasSubstr("\n  1-8.1  Camera 1-8.1 (04f2:b6be)       counts as removable: it is fixed to "
                              "hub 1-8, which counts as removable\n"));
  EXPECT_THAT(text, HasSubstr("TAKEN: the first function of USB device 1-5, which is built in\n"));
  EXPECT_THAT(text, HasSubstr("not taken: it belongs to a USB hub that can be removed, or may be\n"));
  EXPECT_THAT(text, HasSubstr("vivid              not taken: it is not a USB device\n"));
  EXPECT_THAT(text, HasSubstr("not taken: another built-in camera comes first\n"));
  EXPECT_THAT(text, HasSubstr("not a capture device: it carries a camera's metadata, not its pictures\n"));
  EXPECT_THAT(
      text, MatchesRegex("(.|\n)*\nThe camera that is offered: [^\n]* \\(" + Node(0) + "\\), [^\n]* fps\n"));
}

TEST_F(DoctorOnPc, GoesByWhatFirmwareAndHubSay) {
  AddCamera("1-1", 1, "unknown", "unknown");
  AddCamera("1-2", 2, "removable", "hotplug");
  AddHub("1-3", "removable");
  AddCamera("1-3.1", 3, "fixed", "unknown");
  AddCamera("1-4", 4, "fixed", "hardwired", 2);
  EXPECT_EQ(Run(), ExitCode::kNoCamera);
  const std::string text = out.str();
  EXPECT_THAT(text,
              HasSubstr("\nNo camera is offered: none of the 4 capture devices is a built-in camera\n"));
  EXPECT_THAT(text, HasSubstr("\n  - if Camera 1-1 (" + Node(1) +
                              ") is inside the PC, ask the PC's maker for firmware that describes the port"));
  EXPECT_THAT(text,
              HasSubstr("\n  - if Camera 1-2 (" + Node(2) +
                        ") is inside the PC, the firmware describes the port of USB device 1-2 wrongly"));
  EXPECT_THAT(text, HasSubstr("\n  - if Camera 1-3.1 (" + Node(3) +
                              ") is inside the PC, ask the PC's maker for firmware that says that hub 1-3"));
  EXPECT_THAT(text,
              HasSubstr("\n  - Camera 1-4 (" + Node(4) + ") cannot be used: the library takes nothing"));
  EXPECT_EQ(Run(true), ExitCode::kNoCamera);
  EXPECT_THAT(out.str(), HasSubstr(R"("verdictFrom":"nobody","verdict":"counts as removable: neither)"));
  EXPECT_THAT(out.str(), HasSubstr(R"("connectType":"hotplug","attribute":"removable","verdictHub":null)"));
  EXPECT_THAT(out.str(), HasSubstr(R"("connectType":"unknown","attribute":"fixed","verdictHub":"1-3")"));
}

TEST_F(DoctorOnPc, SaysThatTheTakenCameraMayNotBeOpened) {
  AddLaptopCamera();
  kernel.Fail(kOpenCall, EACCES);
  EXPECT_EQ(Run(), ExitCode::kCannotOpen);
  EXPECT_THAT(out.str(), HasSubstr("which is built in; cannot be opened: Permission denied\n"));
  EXPECT_THAT(out.str(), HasSubstr("\nNo camera is offered: "));
  EXPECT_THAT(out.str(), HasSubstr(" is built in, but it cannot be read\n"));
  EXPECT_THAT(out.str(), HasSubstr("add your user to the group video and log in again"));
  AddCamera("1-6", 2, "removable", "hotplug");
  UnplugLaptopCamera();
  EXPECT_EQ(Run(), ExitCode::kNoCamera);
  EXPECT_THAT(out.str(),
              HasSubstr("\n  - " + Node(2) + " cannot be opened (Permission denied): add your user"));
}

TEST_F(DoctorOnPc, SaysThatTheTakenCameraDeliversNothingThatIsKnown) {
  VideoDeviceSettings settings;
  settings.formats.clear();
  AddLaptopCamera(settings);
  EXPECT_EQ(Run(), ExitCode::kCannotOpen);
  EXPECT_THAT(out.str(), HasSubstr("TAKEN: "));
  EXPECT_THAT(out.str(), HasSubstr("\nNo camera is offered: "));
  EXPECT_THAT(out.str(), HasSubstr(" is built in, but "));
}

TEST_F(DoctorOnPc, SaysThatACameraHasNoDriver) {
  kernel.Tree().AddUsb({"1-5"});
  EXPECT_EQ(Run(), ExitCode::kNoCamera);
  EXPECT_THAT(out.str(), HasSubstr("\nCapture devices\n  none seen\n"));
  EXPECT_THAT(out.str(),
              HasSubstr("\n  - USB device 1-5 is a camera, but no driver has made a capture device"));
}

TEST_F(DoctorOnPc, SaysThatANodeIsOutOfReach) {
  AddLaptopCamera();
  kernel.Fail(kOpenCall, ENOENT);
  EXPECT_EQ(Run(), ExitCode::kNoCamera);
  EXPECT_THAT(out.str(), HasSubstr("not a capture device: there is no device behind it, or not where this "
                                   "program may see it; cannot be opened: No such file or directory\n"));
  EXPECT_THAT(out.str(),
              HasSubstr("- " + Node(0) + " cannot be opened (No such file or directory): in a container"));
  EXPECT_THAT(out.str(), Not(HasSubstr("no driver")));
}

// A tree of a host that says nothing more of its devices.
class PlainTree : public DeviceTree {
 public:
  explicit PlainTree(bool isRemovable) : m_isRemovable(isRemovable) {}
  std::vector<CaptureDevice> CaptureDevices() override {
    return {{R"(@device:pnp:\\?\usb#vid_1111&pid_2222&mi_00#host#camera)", "Host's camera", "nowhere",
             m_isRemovable ? "it is plugged in" : "", [] { return std::unique_ptr<CaptureSource>(); }}};
  }
  std::vector<UsbDevice> UsbDevices() override {
    return {{R"(USB\VID_1111&PID_2222\HOST)", m_isRemovable, R"(USB\VID_1111&PID_2222&MI_00\HOST)"}};
  }

 private:
  bool m_isRemovable;
};

TEST_F(DoctorOnPc, TakesTheWordOfAHostProgram) {
  UseDeviceTree(std::make_shared<PlainTree>(true));
  EXPECT_EQ(Run(), ExitCode::kNoCamera);
  EXPECT_THAT(out.str(),
              HasSubstr(R"(  USB\VID_1111&PID_2222\HOST    can be removed: the host program says so)"));
  EXPECT_THAT(out.str(), HasSubstr("correct the host program's list of devices\n"));
  UseDeviceTree(std::make_shared<PlainTree>(false));
  EXPECT_EQ(Run(true), ExitCode::kCannotOpen);
  EXPECT_THAT(out.str(), HasSubstr(R"("verdictFrom":"host","verdict":"built in: the host program says so")"));
  EXPECT_THAT(out.str(), EndsWith("\"otherNodes\":[]}\n"));
  UseDeviceTree(nullptr);
}

}  // namespace
