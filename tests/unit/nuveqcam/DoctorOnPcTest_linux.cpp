// doctor in the test process, on PCs simulated by fake system calls.
#include <cerrno>
#include <map>
#include <sstream>
#include <system_error>

#include "commands/Commands.h"
#include "support/linux/LinuxTest.h"

namespace nuveqcam {
namespace {

using linux_support::Discrete;
using linux_support::kOpenCall;
using linux_support::LinuxTest;
using linux_support::UsbNode;
using linux_support::VideoDeviceSettings;

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
  // Adds a camera with a removable attribute and a port's connect type, and its node.
  void AddCamera(const std::string& name, int number, const std::string& removable,
                 const std::optional<std::string>& connectType, int interface = 0,
                 VideoDeviceSettings settings = {}) {
    UsbNode node{name};
    node.removable = removable;
    node.connectType = connectType;
    if (interface != 0) {
      node.interfaces = {0, interface};
    }
    kernel.Tree().AddUsb(node);
    kernel.Tree().SetUsbAttribute(name, "product", "Camera " + name);
    kernel.Tree().AddVideoOfUsb(number, name + ":1." + std::to_string(interface), "Camera " + name, 0);
    kernel.AddDevice(number, std::move(settings));
  }
  void AddHub(const std::string& name, const std::string& removable) {
    kernel.Tree().AddUsb({name, "05e3", "0610", removable, {0}});
    kernel.Tree().SetUsbAttribute(name, "product", "Hub");
    kernel.Tree().SetUsbAttribute(name, "bDeviceClass", "09");
    kernel.Tree().SetUsbAttribute(name + ":1.0", "bInterfaceClass", "09");
  }
  void TearDown() override {
    devices::SetDeviceProvider(nullptr);
    LinuxTest::TearDown();
  }
  std::string Node(int number) const {
    return (kernel.DevRoot() / ("video" + std::to_string(number))).string();
  }

  std::ostringstream out;
  std::ostringstream err;
};

TEST_F(DoctorOnPc, ExplainsTheSelectedCameraAndTheOthers) {
  AddLaptopCamera();
  kernel.Tree().SetUsbAttribute("1-5", "product", "Integrated Camera");
  AddHub("1-8", "unknown");
  AddCamera("1-8.1", 4, "fixed", "hardwired");
  kernel.Tree().AddVideoOf(5, "platform/vivid.0", "vivid", 0);
  kernel.AddDevice(5);
  kernel.Tree().AddVideoOfUsb(6, "1-5:1.1", "Second function", 0);
  kernel.AddDevice(6);
  EXPECT_EQ(Run(), ExitCode::kOk);
  const std::string text = out.str();
  EXPECT_THAT(
      text, HasSubstr("USB devices\n  1-5    Integrated Camera (04f2:b6be)  built in: the firmware (ACPI)"));
  EXPECT_THAT(text, HasSubstr("\n  1-8    Hub (05e3:0610), hub           treated as removable: neither"));
  EXPECT_THAT(text,
              HasSubstr("\n  1-8.1  Camera 1-8.1 (04f2:b6be)       treated as removable: it is fixed to "
                        "hub 1-8, which is treated as removable\n"));
  EXPECT_THAT(text, HasSubstr("SELECTED: the first camera of USB device 1-5, which is built in\n"));
  EXPECT_THAT(
      text,
      HasSubstr("not selected: it is connected to a USB hub that is removable or treated as removable\n"));
  EXPECT_THAT(text, HasSubstr("vivid              not selected: it is not a USB device\n"));
  EXPECT_THAT(text, HasSubstr("not selected: it is not the first camera of its USB device\n"));
  EXPECT_THAT(text, HasSubstr("not a capture device: it carries a camera's metadata, not its pictures\n"));
  EXPECT_THAT(text, MatchesRegex("(.|\n)*\nOffered camera: [^\n]* \\(" + Node(0) +
                                 "\\), [^\n]* fps\n  - 'nuveqcam probe' measures [^\n]*\n"));
}

TEST_F(DoctorOnPc, UsesTheDeclarationsOfFirmwareAndHubs) {
  AddCamera("1-1", 1, "unknown", "unknown");
  AddCamera("1-2", 2, "removable", "hotplug");
  AddHub("1-3", "removable");
  AddCamera("1-3.1", 3, "fixed", "unknown");
  VideoDeviceSettings infrared;
  infrared.formats = {{V4L2_PIX_FMT_GREY, {Discrete(640, 360, {15})}}};
  AddCamera("1-4", 4, "fixed", "hardwired", 0, infrared);
  EXPECT_EQ(Run(), ExitCode::kNoCamera);
  const std::string text = out.str();
  EXPECT_THAT(text,
              HasSubstr("\nNo camera is offered: none of the 3 capture devices is a built-in USB camera\n"));
  EXPECT_THAT(
      text, HasSubstr("\n  - if Camera 1-1 (" + Node(1) +
                      ") is inside the PC, ask the PC's manufacturer for firmware that describes the port"));
  EXPECT_THAT(text,
              HasSubstr("\n  - if Camera 1-2 (" + Node(2) +
                        ") is inside the PC, the firmware describes the port of USB device 1-2 incorrectly"));
  EXPECT_THAT(text,
              HasSubstr("\n  - if Camera 1-3.1 (" + Node(3) +
                        ") is inside the PC, ask the PC's manufacturer for firmware that declares hub 1-3"));
  EXPECT_THAT(text,
              HasSubstr("  " + Node(4) + "  Camera 1-4    not a capture device: it delivers no format"));
  EXPECT_THAT(text, HasSubstr("\n  - Camera 1-4 (" + Node(4) +
                              ") cannot be used: it delivers no format that the library can use (GREY)\n"));
  EXPECT_EQ(Run(true), ExitCode::kNoCamera);
  EXPECT_THAT(out.str(), HasSubstr(R"("verdictFrom":"nobody","verdict":"treated as removable: neither)"));
  EXPECT_THAT(out.str(), HasSubstr(R"("connectType":"hotplug","attribute":"removable","verdictHub":null)"));
  EXPECT_THAT(out.str(), HasSubstr(R"("connectType":"unknown","attribute":"fixed","verdictHub":"1-3")"));
}

TEST_F(DoctorOnPc, ReportsThatTheSelectedCameraCannotBeOpened) {
  AddLaptopCamera();
  kernel.Fail(kOpenCall, EACCES);
  EXPECT_EQ(Run(), ExitCode::kCannotOpen);
  EXPECT_THAT(out.str(), HasSubstr("which is built in; cannot be opened: Permission denied\n"));
  EXPECT_THAT(out.str(), HasSubstr("(" + Node(0) + ") is built in, but it cannot be read\n"));
  EXPECT_THAT(out.str(), HasSubstr("not examined: it cannot be opened and is not its camera's first node "
                                   "(Permission denied)\n"));
  EXPECT_THAT(out.str(), HasSubstr("add your user to the group video and log in again"));
  AddCamera("1-6", 2, "removable", "hotplug");
  UnplugLaptopCamera();
  EXPECT_EQ(Run(), ExitCode::kNoCamera);
  EXPECT_THAT(out.str(),
              HasSubstr("\n  - " + Node(2) + " cannot be opened (Permission denied): add your user"));
}

TEST_F(DoctorOnPc, AdviceDependsOnTheOpenError) {
  AddCamera("1-6", 2, "removable", "hotplug");
  const std::map<int, std::string> advices{
      {EPERM, "in a container or a service, allow access to the device\n"},
      {EBUSY, "close the program that uses it\n"},
      {ENODEV, "in a container, pass the device into it; else check with"},
      {EIO, "look for the kernel's messages with 'sudo dmesg'\n"}};
  for (const auto& [error, advice] : advices) {
    kernel.Fail(kOpenCall, error);
    EXPECT_EQ(Run(), ExitCode::kNoCamera);
    EXPECT_THAT(out.str(), HasSubstr("\n  - " + Node(2) + " cannot be opened (" +
                                     std::generic_category().message(error) + "): " + advice));
  }
}

TEST_F(DoctorOnPc, DistinguishesTheSelectedCameraFromOtherBuiltInCameras) {
  // The first camera on the bus has the higher node number and different sizes.
  VideoDeviceSettings first;
  first.formats = {{V4L2_PIX_FMT_YUYV, {Discrete(352, 288, {25})}}};
  AddCamera("1-7", 0, "fixed", "hardwired");
  AddCamera("1-2", 3, "fixed", "hardwired", 0, first);
  kernel.Tree().AddVideoOfUsb(4, "1-2:1.0", "Camera 1-2", 1);
  kernel.AddDevice(4);
  EXPECT_EQ(Run(), ExitCode::kOk);
  EXPECT_THAT(out.str(),
              HasSubstr("  " + Node(3) + "  Camera 1-2  SELECTED: the first camera of USB device 1-2"));
  EXPECT_THAT(out.str(), HasSubstr("  " + Node(4) +
                                   "  Camera 1-2  not selected: it is another node of the selected camera"));
  EXPECT_THAT(out.str(),
              HasSubstr("  " + Node(0) + "  Camera 1-7  not selected: another built-in camera comes"));
  EXPECT_THAT(out.str(), HasSubstr("\nOffered camera: Camera 1-2 (" + Node(3) + "), 352x288, 25 fps\n"));
}

TEST_F(DoctorOnPc, ReportsAMissingKernelAttribute) {
  UsbNode node{"1-6"};
  node.removable = std::nullopt;
  kernel.Tree().AddUsb(node);
  kernel.Tree().AddVideoOfUsb(2, "1-6:1.0", "Camera", 0);
  kernel.AddDevice(2);
  EXPECT_EQ(Run(), ExitCode::kNoCamera);
  EXPECT_THAT(
      out.str(),
      HasSubstr("treated as removable: the kernel has no attribute that tells whether it can be removed\n"));
  EXPECT_THAT(out.str(),
              HasSubstr("not selected: the kernel does not report whether its USB device is removable\n"));
  EXPECT_THAT(out.str(), HasSubstr("is inside the PC, run this outside containers and sandboxes, or use a"));
}

TEST_F(DoctorOnPc, ReportsThatTheSelectedCameraHasNoSizes) {
  VideoDeviceSettings settings;
  settings.formats = {{V4L2_PIX_FMT_YUYV, {Discrete(0, 0, {30})}}};
  AddLaptopCamera(settings);
  EXPECT_EQ(Run(), ExitCode::kCannotOpen);
  EXPECT_THAT(out.str(), HasSubstr("SELECTED: "));
  EXPECT_THAT(out.str(), HasSubstr("(" + Node(0) + ") is built in, but it has no picture sizes\n"));
}

TEST_F(DoctorOnPc, ReportsACameraWithoutADriver) {
  kernel.Tree().AddUsb({"1-5"});
  EXPECT_EQ(Run(), ExitCode::kNoCamera);
  EXPECT_THAT(out.str(), HasSubstr("\nCapture devices\n  none found\n"));
  EXPECT_THAT(out.str(),
              HasSubstr("\n  - USB device 1-5 is a camera, but no driver has created a capture device"));
}

TEST_F(DoctorOnPc, ReportsAnInaccessibleNode) {
  AddLaptopCamera();
  kernel.Fail(kOpenCall, ENOENT);
  EXPECT_EQ(Run(), ExitCode::kNoCamera);
  EXPECT_THAT(out.str(), HasSubstr("not examined: the device does not exist or is not visible to this "
                                   "process (No such file or directory)\n"));
  EXPECT_THAT(out.str(), HasSubstr("- " + Node(0) + ", " + Node(1) +
                                   " cannot be opened (No such file or directory): in a container"));
  EXPECT_THAT(out.str(), Not(HasSubstr("no driver")));
}

// A host's device provider without details.
class HostProvider : public devices::DeviceProvider {
 public:
  explicit HostProvider(bool isRemovable, std::string firstFunction = R"(USB\VID_1111&PID_2222&MI_00\HOST)")
      : m_isRemovable(isRemovable), m_firstFunction(std::move(firstFunction)) {}
  std::vector<devices::CaptureDevice> CaptureDevices() override {
    return {{R"(@device:pnp:\\?\usb#vid_1111&pid_2222&mi_00#host#camera)", "Host's camera", "nowhere",
             m_isRemovable ? "it is plugged in" : "",
             [] { return std::unique_ptr<graph::CaptureSource>(); }}};
  }
  std::vector<devices::UsbDevice> UsbDevices() override {
    return {{R"(USB\VID_1111&PID_2222\HOST)", m_isRemovable, m_firstFunction}};
  }

 private:
  bool m_isRemovable;
  std::string m_firstFunction;
};

devices::UsbDetails HostUsbDetails() {
  devices::UsbDetails details;
  details.place = "1-5";
  details.id = R"(USB\VID_1111&PID_2222\HOST)";
  details.removability.isRemovable = false;
  details.removability.source = devices::RemovabilitySource::kFirmware;
  details.removability.connectType = "hardwired";
  return details;
}

// A camera that is present from the inventory's first query on, permanently or for one query only. The camera
// library never calls DescribeUsbDevices, so that call marks the inventory's query.
class HotplugProvider : public HostProvider {
 public:
  explicit HotplugProvider(bool isPermanent) : HostProvider(false), m_isPermanent(isPermanent) {}
  std::vector<devices::CaptureDevice> CaptureDevices() override {
    return std::exchange(m_isPresent, m_isPresent && m_isPermanent) ? HostProvider::CaptureDevices()
                                                                    : std::vector<devices::CaptureDevice>();
  }
  std::vector<devices::UsbDetails> DescribeUsbDevices() override {
    m_isPresent = true;
    return {HostUsbDetails()};
  }

 private:
  bool m_isPermanent;
  bool m_isPresent = false;
};

TEST_F(DoctorOnPc, RepeatsTheQueriesIfACameraWasAdded) {
  devices::SetDeviceProvider(std::make_shared<HotplugProvider>(true));
  EXPECT_EQ(Run(), ExitCode::kCannotOpen);
  EXPECT_THAT(out.str(), HasSubstr("SELECTED: the first camera"));
  EXPECT_THAT(out.str(), HasSubstr("Host's camera (nowhere) is built in, but it cannot be read\n"));
}

TEST_F(DoctorOnPc, ReportsACameraThatTheLibraryDidNotSee) {
  devices::SetDeviceProvider(std::make_shared<HotplugProvider>(false));
  EXPECT_EQ(Run(), ExitCode::kNoCamera);
  EXPECT_THAT(out.str(),
              HasSubstr("would be selected: the first camera of a USB device, which is built in\n"));
  EXPECT_THAT(out.str(), HasSubstr("looks built in, but the library did not select it\n"));
  EXPECT_EQ(Run(true), ExitCode::kNoCamera);
  EXPECT_THAT(out.str(), HasSubstr(R"("captureDevices":[{"taken":false,)"));
}

// Devices that change between queries: details of USB devices are missing in the first query, and video nodes
// are not yet, or no longer, capture devices.
class ChangingProvider : public HostProvider {
 public:
  ChangingProvider() : HostProvider(true) {}
  std::vector<devices::UsbDetails> DescribeUsbDevices() override {
    return m_usbQueries++ % 2 == 0 ? std::vector<devices::UsbDetails>() : std::vector{HostUsbDetails()};
  }
  std::vector<devices::VideoNodeDetails> DescribeVideoNodes() override {
    return {{"nowhere", "Node", "1-5", "there is no device behind it", ENODEV},
            {"gone", "Node", "1-5", "", 0}};
  }

 private:
  int m_usbQueries = 0;
};

TEST_F(DoctorOnPc, PrintsNoOutdatedStateOfChangingDevices) {
  devices::SetDeviceProvider(std::make_shared<ChangingProvider>());
  EXPECT_EQ(Run(), ExitCode::kNoCamera);
  EXPECT_THAT(out.str(), Not(HasSubstr("host program")));
  EXPECT_THAT(out.str(), HasSubstr("  1-5  "));
  EXPECT_THAT(out.str(), HasSubstr("  nowhere  Host's camera  not selected: it is plugged in\n"));
  EXPECT_THAT(out.str(), Not(HasSubstr("cannot be opened")));
  EXPECT_THAT(out.str(), Not(HasSubstr("gone  ")));
}

TEST_F(DoctorOnPc, UsesTheDeclarationsOfAHostProgram) {
  devices::SetDeviceProvider(std::make_shared<HostProvider>(true));
  EXPECT_EQ(Run(), ExitCode::kNoCamera);
  EXPECT_THAT(out.str(),
              HasSubstr(R"(  USB\VID_1111&PID_2222\HOST    removable: according to the host program)"));
  EXPECT_THAT(out.str(), HasSubstr("correct the device list of the host program\n"));
  devices::SetDeviceProvider(std::make_shared<HostProvider>(false));
  EXPECT_EQ(Run(true), ExitCode::kCannotOpen);
  EXPECT_THAT(out.str(),
              HasSubstr(R"("verdictFrom":"host","verdict":"built in: according to the host program")"));
  EXPECT_THAT(out.str(), EndsWith("\"otherNodes\":[]}\n"));
  // The camera is not the first function of the USB device.
  devices::SetDeviceProvider(std::make_shared<HostProvider>(true, R"(USB\VID_1111&PID_2222&MI_02\HOST)"));
  EXPECT_EQ(Run(), ExitCode::kNoCamera);
  EXPECT_THAT(out.str(), HasSubstr("Host's camera (nowhere) cannot be used: it is plugged in\n"));
}

}  // namespace
}  // namespace nuveqcam
