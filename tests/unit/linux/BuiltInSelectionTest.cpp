// Enumeration of capture and USB devices, and the selection of the built-in camera.
#include <algorithm>
#include <cctype>

#include "support/linux/LinuxTest.h"

#include <fcntl.h>

namespace linux_support {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::StartsWith;
using ::testing::UnorderedElementsAre;

class BuiltInSelectionTest : public LinuxTest {
 protected:
  // Adds a camera with one video function.
  void AddCamera(const UsbNode& node, int number, int interface = 0) {
    kernel.Tree().AddUsb(node);
    AddFunction(node.name, interface, number);
  }
  // Adds a video function to a USB device.
  void AddFunction(const std::string& usbName, int interface, int number, VideoDeviceSettings settings = {}) {
    kernel.Tree().AddVideoOfUsb(number, usbName + ":1." + std::to_string(interface), "Camera", 0);
    kernel.AddDevice(number, std::move(settings));
  }
  // An infrared camera, as laptops use for face recognition.
  static VideoDeviceSettings Infrared() {
    VideoDeviceSettings settings;
    settings.formats = {{V4L2_PIX_FMT_GREY, {Discrete(640, 360, {15})}}};
    return settings;
  }
  // Whether the only USB device is removable.
  static bool IsOnlyDeviceRemovable() {
    const std::vector<EnumeratedUsbDevice> devices = ListUsbDevices();
    EXPECT_THAT(devices, SizeIs(1));
    return devices.empty() || devices.front().isRemovable;
  }
};

using CaptureDeviceListTest = BuiltInSelectionTest;
using UsbDeviceListTest = BuiltInSelectionTest;

// --- Capture devices ---

TEST_F(CaptureDeviceListTest, CreateClassEnumeratorReturnsSFalseWithoutCameras) {
  ComPtr<ICreateDevEnum> devices;
  ASSERT_EQ(CoCreateInstance(CLSID_SystemDeviceEnum, nullptr, CLSCTX_INPROC_SERVER, IID_ICreateDevEnum,
                             devices.PutVoid()),
            S_OK);
  FakeV4l2Device& device = AddLaptopCamera();
  ComPtr<IEnumMoniker> monikers;
  EXPECT_EQ(devices->CreateClassEnumerator(CLSID_VideoInputDeviceCategory, monikers.Put(), 0), S_OK);
  ASSERT_TRUE(monikers);
  UnplugLaptopCamera();
  auto* notNull = monikers.Get();
  EXPECT_EQ(devices->CreateClassEnumerator(CLSID_VideoInputDeviceCategory, &notNull, 0), S_FALSE);
  EXPECT_EQ(notNull, nullptr);
  EXPECT_EQ(device.OpenHandles(), 0U);
}

TEST_F(CaptureDeviceListTest, ExcludesNodesThatDoNotCapture) {
  AddLaptopCamera();
  kernel.Tree().AddVideoOf(7, "platform/codec.0", "a decoder", 0);
  VideoDeviceSettings decoder;
  decoder.nodeCapabilities = V4L2_CAP_VIDEO_M2M_MPLANE | V4L2_CAP_STREAMING;
  decoder.deviceCapabilities = decoder.nodeCapabilities;
  kernel.AddDevice(7, decoder);
  EXPECT_THAT(DisplayNames(), SizeIs(1)) << "the metadata node's device capabilities include video capture";
}

TEST_F(CaptureDeviceListTest, UsesDeviceCapabilitiesIfTheDriverReportsNoNodeCapabilities) {
  VideoDeviceSettings old;
  old.reportsNodeCapabilities = false;
  AddPluggedInCamera("1-2", 3, old);
  EXPECT_THAT(DisplayNames(), SizeIs(1));
}

TEST_F(CaptureDeviceListTest, ListsTheFirstNodeOfADeviceThatDeniesAccess) {
  AddLaptopCamera();
  kernel.Fail(kOpenCall, EACCES);
  EXPECT_THAT(DisplayNames(), SizeIs(1)) << "without access only the first node of a device is listed";
}

TEST_F(CaptureDeviceListTest, ListsCamerasThatAreInUse) {
  AddLaptopCamera();
  kernel.Fail(kOpenCall, EBUSY);
  EXPECT_THAT(DisplayNames(), SizeIs(1));
}

TEST_F(CaptureDeviceListTest, ListsCamerasThatAreNotOnUsb) {
  kernel.Tree().AddVideoOf(2, "platform/vivid.0", "vivid", 0);
  kernel.AddDevice(2);
  ASSERT_THAT(DisplayNames(), SizeIs(1));
  EXPECT_THAT(DisplayNames().front(), ::testing::Not(HasSubstr("usb#")));
  EXPECT_EQ(BuiltInCameraName(), "");
}

TEST_F(CaptureDeviceListTest, DisplayNamesAreLowerCaseAndContainTheInterfaceId) {
  UsbNode node{"1-5", "04F2", "B6BE"};
  node.controller = "pci0000:00/0000:00:1C.5/0000:02:00.0";
  AddCamera(node, 0);
  const std::vector<EnumeratedUsbDevice> devices = ListUsbDevices();
  ASSERT_THAT(devices, SizeIs(1));
  ASSERT_THAT(DisplayNames(), SizeIs(1));
  const std::string name = DisplayNames().front();
  EXPECT_THAT(devices.front().childId, StartsWith("USB\\VID_04F2&PID_B6BE&MI_00\\"));
  EXPECT_THAT(name, AllOf(HasSubstr("usb#vid_04f2&pid_b6be&mi_00#"),
                          HasSubstr(ToDisplayNameForm(devices.front().childId))));
  EXPECT_TRUE(std::none_of(name.begin(), name.end(), [](unsigned char c) { return std::isupper(c) != 0; }))
      << name;
}

TEST_F(CaptureDeviceListTest, DisplayNamesDoNotDependOnBusAndNodeNumbers) {
  kernel.Tree().AddUsb({"1-5", "05e3", "0610"});
  AddCamera({"1-5.3"}, 0);
  const std::vector<std::string> before = DisplayNames();
  FakeSystemCalls rebooted;
  rebooted.Tree().AddUsb({"3-5", "05e3", "0610"});
  rebooted.Tree().AddUsb({"3-5.3"});
  rebooted.Tree().AddVideoOfUsb(4, "3-5.3:1.0", "Camera", 0);
  rebooted.AddDevice(4);
  v4l2::SetSystemCallsForTesting(&rebooted);
  EXPECT_THAT(before, SizeIs(1));
  EXPECT_EQ(DisplayNames(), before);
  v4l2::SetSystemCallsForTesting(&kernel);
}

TEST_F(CaptureDeviceListTest, NoDisplayNameContainsAnother) {
  // The same model on ports 1, 1.1 and 11, two nodes of one interface, and two nodes that are not on USB.
  AddCamera({"1-1"}, 0);
  kernel.Tree().AddVideoOfUsb(1, "1-1:1.0", "Camera", 1);
  kernel.AddDevice(1);
  AddCamera({"1-1.1"}, 2);
  AddCamera({"1-11"}, 3);
  UsbNode onAnotherController{"2-1"};
  onAnotherController.controller = "pci0000:00/0000:00:14.1";
  AddCamera(onAnotherController, 4);
  kernel.Tree().AddVideoOf(5, "platform/vivid.0", "vivid", 0);
  kernel.AddDevice(5);
  kernel.Tree().AddVideoOf(10, "platform/vivid.0", "vivid", 1);
  kernel.AddDevice(10);
  const std::vector<std::string> names = DisplayNames();
  EXPECT_THAT(names, SizeIs(7));
  for (const std::string& name : names) {
    EXPECT_EQ(
        std::count_if(names.begin(), names.end(),
                      [&name](const std::string& other) { return other.find(name) != std::string::npos; }),
        1)
        << name;
  }
}

TEST_F(CaptureDeviceListTest, OrderDoesNotDependOnDirectoryOrder) {
  const auto listWithOrder = [](const std::vector<int>& ports) {
    FakeSystemCalls other;
    v4l2::SetSystemCallsForTesting(&other);
    for (const int port : ports) {
      const std::string name = "1-" + std::to_string(port);
      other.Tree().AddUsb({name, "04f2", "b6be", "removable"});
      other.Tree().AddVideoOfUsb(port, name + ":1.0", "Camera", 0);
      other.AddDevice(port);
    }
    std::vector<std::string> all = DisplayNames();
    for (const EnumeratedUsbDevice& device : ListUsbDevices()) {
      all.push_back(device.id);
    }
    return all;
  };
  const std::vector<std::string> first = listWithOrder({1, 2, 3, 4, 5, 6});
  EXPECT_THAT(first, SizeIs(12));
  EXPECT_EQ(listWithOrder({6, 5, 4, 3, 2, 1}), first);
  EXPECT_EQ(listWithOrder({4, 1, 6, 3, 5, 2}), first);
  v4l2::SetSystemCallsForTesting(&kernel);
}

TEST_F(CaptureDeviceListTest, OrderDoesNotDependOnNodeNumbers) {
  AddCamera({"1-6"}, 0);
  AddCamera({"1-5"}, 1);
  const std::vector<std::string> names = DisplayNames();
  EXPECT_THAT(names, SizeIs(2));
  EXPECT_TRUE(std::is_sorted(names.begin(), names.end()));
}

TEST_F(CaptureDeviceListTest, DisplayNamesOfCamerasThatAreNotOnUsbContainTheirPath) {
  const std::string prefix = R"(@device:pnp:\\?\)";
  const std::string suffix = R"(#{65e8773d-8f56-11d0-a3b9-00a0c9223196}\video-index0)";
  for (const auto& [folder, expected] : {std::pair{"platform/vivid.0", "platform#vivid.0"},
                                         std::pair{"platform/CSI 0~!\x1F\x7F\x80", "platform#csi_0~!___"}}) {
    kernel.Tree().AddVideoOf(2, folder, "Camera", 0);
    kernel.AddDevice(2);
    EXPECT_THAT(DisplayNames(), ::testing::ElementsAre(std::string(prefix).append(expected).append(suffix)));
    kernel.Tree().RemoveVideo(2);
  }
}

TEST_F(CaptureDeviceListTest, IgnoresRadiosAndSubdevices) {
  AddLaptopCamera();
  for (const char* const other : {"radio0", "v4l-subdev0", "vbi0"}) {
    std::filesystem::create_directory(kernel.SysfsRoot() / "class/video4linux" / other);
  }
  EXPECT_THAT(devices::CurrentDeviceProvider()->DescribeVideoNodes(), SizeIs(2));
}

TEST_F(CaptureDeviceListTest, SkipsDevicesThatDisappearDuringEnumeration) {
  AddLaptopCamera();
  kernel.Tree().AddDanglingVideo(7);
  kernel.Tree().AddDanglingVideo(8);
  kernel.AddDevice(8);  // can still be opened
  kernel.Tree().AddDanglingUsb("1-8");
  for (const char* const attribute : {"idVendor", "idProduct"}) {
    const std::string name = attribute == std::string("idVendor") ? "1-9" : "1-10";
    kernel.Tree().AddUsb({name});
    kernel.Tree().SetUsbAttribute(name, attribute, {});
  }
  EXPECT_THAT(DisplayNames(), SizeIs(1));
  EXPECT_THAT(ListUsbDevices(), SizeIs(1));
  EXPECT_NE(BuiltInCameraName(), "");
}

TEST_F(CaptureDeviceListTest, IsEmptyWithoutSysfs) {
  std::filesystem::remove_all(kernel.SysfsRoot());
  EXPECT_THAT(DisplayNames(), IsEmpty());
  EXPECT_THAT(ListUsbDevices(), IsEmpty());
}

TEST_F(CaptureDeviceListTest, ListingFormatsFailsAfterTheDeviceWasUnplugged) {
  AddLaptopCamera();
  const std::vector<EnumeratedDevice> devices = ListCaptureDevices();
  ASSERT_THAT(devices, SizeIs(1));
  UnplugLaptopCamera();
  ComPtr<IBaseFilter> filter;
  ASSERT_EQ(devices.front().moniker->BindToObject(nullptr, nullptr, IID_IBaseFilter, filter.PutVoid()), S_OK);
  std::vector<MediaType> types;
  EXPECT_EQ(ListMediaTypes(*FindPin(*filter.Get(), PINDIR_OUTPUT).Get(), types), kDeviceGone);
}

TEST_F(CaptureDeviceListTest, OpensNodesNonBlockingAndCloseOnExec) {
  AddLaptopCamera();
  EXPECT_THAT(DisplayNames(), SizeIs(1));
  EXPECT_NE(kernel.OpenFlags() & O_NONBLOCK, 0);
  EXPECT_NE(kernel.OpenFlags() & O_CLOEXEC, 0);
  EXPECT_EQ(kernel.OpenFlags() & O_ACCMODE, O_RDWR);
}

TEST_F(CaptureDeviceListTest, ExcludesDevicesWithoutASupportedFormat) {
  AddLaptopCamera();
  for (const std::uint32_t pixelFormat : {V4L2_PIX_FMT_GREY, V4L2_PIX_FMT_Y16, V4L2_PIX_FMT_H264}) {
    VideoDeviceSettings settings;
    settings.formats = {{pixelFormat, {Discrete(640, 360, {15})}}};
    AddPluggedInCamera("1-7", 7, settings);
    EXPECT_THAT(DisplayNames(), SizeIs(1)) << pixelFormat;
    kernel.Unplug("1-7", {7});
  }
}

TEST_F(CaptureDeviceListTest, IncludesDevicesWhoseFormatsCannotBeRead) {
  AddLaptopCamera();
  kernel.Fail(VIDIOC_ENUM_FMT, EIO);
  EXPECT_THAT(DisplayNames(), SizeIs(1)) << "the call that needs the formats reports the failure";
}

// --- USB devices ---

TEST_F(UsbDeviceListTest, AreFixedOnlyIfTheKernelReportsFixed) {
  kernel.Tree().AddUsb({"1-5"});
  EXPECT_FALSE(IsOnlyDeviceRemovable());
  for (const char* const text : {"removable", "unknown", "", "Fixed", "nonsense"}) {
    kernel.Tree().SetUsbAttribute("1-5", "removable", text);
    EXPECT_TRUE(IsOnlyDeviceRemovable()) << text;
  }
  kernel.Tree().SetUsbAttribute("1-5", "removable", {});
  EXPECT_TRUE(IsOnlyDeviceRemovable()) << "without the attribute";
}

TEST_F(UsbDeviceListTest, FixedDeviceBehindARemovableHubIsRemovable) {
  kernel.Tree().AddUsb({"1-2", "05e3", "0610", "removable", {0}});
  kernel.Tree().AddUsb({"1-2.1", "05e3", "0610", "fixed", {0}});
  AddCamera({"1-2.1.4"}, 0);
  for (const EnumeratedUsbDevice& device : ListUsbDevices()) {
    EXPECT_TRUE(device.isRemovable) << device.id;
  }
  EXPECT_EQ(BuiltInCameraName(), "");
}

TEST_F(UsbDeviceListTest, FixedDeviceBehindAnUnknownHubIsRemovable) {
  kernel.Tree().AddUsb({"1-2", "05e3", "0610", "fixed", {0}});
  kernel.Tree().AddUsb({"1-2.1", "05e3", "0610", "unknown", {0}});
  AddCamera({"1-2.1.4"}, 0);
  EXPECT_THAT(DisplayNames(), SizeIs(1));
  EXPECT_EQ(BuiltInCameraName(), "");
  kernel.Tree().SetUsbAttribute("1-2.1", "removable", {});
  EXPECT_EQ(BuiltInCameraName(), "") << "without the attribute";
  kernel.Tree().SetUsbAttribute("1-2.1", "removable", "fixed");
  EXPECT_NE(BuiltInCameraName(), "");
}

TEST_F(UsbDeviceListTest, ExcludesRootHubsAndInterfaces) {
  kernel.Tree().AddUsb({"1-5"});
  kernel.Tree().AddUsb({"2-1", "8087", "0026"});
  std::vector<std::string> ids;
  for (const EnumeratedUsbDevice& device : ListUsbDevices()) {
    ids.push_back(device.id);
  }
  EXPECT_THAT(ids, UnorderedElementsAre(StartsWith("USB\\VID_04F2&PID_B6BE\\"),
                                        StartsWith("USB\\VID_8087&PID_0026\\")));
}

TEST_F(UsbDeviceListTest, ExcludesFoldersThatAreNotBelowARootHub) {
  kernel.Tree().AddUsb({"1-5"});
  const std::filesystem::path links = kernel.SysfsRoot() / "bus/usb/devices";
  const std::filesystem::path unplaced = kernel.SysfsRoot() / "devices/platform/1-7";
  const std::filesystem::path unnamed = std::filesystem::canonical(links / "usb1") / "device";
  for (const std::filesystem::path& folder : {unplaced, unnamed}) {
    std::filesystem::create_directories(folder);
    for (const char* const attribute : {"idVendor", "idProduct"}) {
      std::filesystem::copy_file(links / "1-5" / attribute, folder / attribute);
    }
    std::filesystem::create_directory_symlink(folder, links / folder.filename());
  }
  EXPECT_THAT(ListUsbDevices(), SizeIs(1));
}

TEST_F(UsbDeviceListTest, FirstChildIsTheLowestInterface) {
  kernel.Tree().AddUsb({"1-5", "04f2", "b6be", "fixed", {10, 3, 2}});
  ASSERT_THAT(ListUsbDevices(), SizeIs(1));
  EXPECT_THAT(ListUsbDevices().front().childId, StartsWith("USB\\VID_04F2&PID_B6BE&MI_02\\"));
}

TEST_F(UsbDeviceListTest, InterfaceThatDisappearsIsNotTheFirstChild) {
  kernel.Tree().AddUsb({"1-5"});
  kernel.Tree().SetUsbAttribute("1-5:1.0", "bInterfaceNumber", {});
  ASSERT_THAT(ListUsbDevices(), SizeIs(1));
  EXPECT_THAT(ListUsbDevices().front().childId, StartsWith("USB\\VID_04F2&PID_B6BE&MI_01\\"));
}

TEST_F(UsbDeviceListTest, FirstChildIsTheLowestInterfaceWithAUsableCamera) {
  kernel.Tree().AddUsb({"1-5", "04f2", "b6be", "fixed", {0, 1, 2, 3, 4, 10}});
  AddFunction("1-5", 10, 3);
  AddFunction("1-5", 4, 2);
  AddFunction("1-5", 2, 1, Infrared());
  ASSERT_THAT(ListUsbDevices(), SizeIs(1));
  EXPECT_THAT(ListUsbDevices().front().childId, StartsWith("USB\\VID_04F2&PID_B6BE&MI_04\\"));
}

TEST_F(UsbDeviceListTest, FirstChildIsTheLowestInterfaceIfTheOnlyCameraIsInfrared) {
  kernel.Tree().AddUsb({"1-5", "04f2", "b6be", "fixed", {0, 2}});
  AddFunction("1-5", 2, 0, Infrared());
  ASSERT_THAT(ListUsbDevices(), SizeIs(1));
  EXPECT_THAT(ListUsbDevices().front().childId, StartsWith("USB\\VID_04F2&PID_B6BE&MI_00\\"));
}

TEST_F(UsbDeviceListTest, InterfaceNumbersAreHexadecimal) {
  kernel.Tree().AddUsb({"1-5", "04f2", "b6be", "fixed", {10}});
  ASSERT_THAT(ListUsbDevices(), SizeIs(1));
  EXPECT_THAT(ListUsbDevices().front().childId, StartsWith("USB\\VID_04F2&PID_B6BE&MI_0A\\"));
}

TEST_F(UsbDeviceListTest, DeviceWithoutInterfacesHasNoChild) {
  kernel.Tree().AddUsb({"1-5", "04f2", "b6be", "fixed", {}});
  ASSERT_THAT(ListUsbDevices(), SizeIs(1));
  EXPECT_EQ(ListUsbDevices().front().childId, "");
  EXPECT_FALSE(ListUsbDevices().front().isRemovable);
}

TEST_F(UsbDeviceListTest, DevicesBehindAHubAreNotItsChildren) {
  kernel.Tree().AddUsb({"1-2", "05e3", "0610", "fixed", {}});
  kernel.Tree().AddUsb({"1-2.1"});
  const std::vector<EnumeratedUsbDevice> devices = ListUsbDevices();
  ASSERT_THAT(devices, SizeIs(2));
  EXPECT_EQ(devices.front().childId, "");
}

TEST_F(UsbDeviceListTest, DevicesOfTheSameModelHaveDistinctIds) {
  kernel.Tree().AddUsb({"1-5"});
  kernel.Tree().AddUsb({"1-6"});
  const std::vector<EnumeratedUsbDevice> devices = ListUsbDevices();
  ASSERT_THAT(devices, SizeIs(2));
  EXPECT_NE(devices[0].id, devices[1].id);
  EXPECT_NE(devices[0].childId, devices[1].childId);
}

// --- The built-in camera ---

TEST_F(BuiltInSelectionTest, SelectsTheFixedCamera) {
  AddPluggedInCamera("1-2", 2);
  AddLaptopCamera();
  AddPluggedInCamera("1-7", 3);
  EXPECT_THAT(DisplayNames(), SizeIs(3));
  EXPECT_THAT(BuiltInCameraName(), HasSubstr("usb#vid_04f2&pid_b6be&mi_00#"));
}

TEST_F(BuiltInSelectionTest, IgnoresPlugInCameras) {
  AddPluggedInCamera("1-2", 0);
  kernel.Tree().AddUsb({"1-10", "8087", "0aaa", "fixed"});
  EXPECT_THAT(DisplayNames(), SizeIs(1));
  EXPECT_EQ(BuiltInCameraName(), "");
}

TEST_F(BuiltInSelectionTest, DistinguishesCamerasOfTheSameModel) {
  AddCamera({"1-4", "04f2", "b6be", "removable"}, 0);
  AddCamera({"1-5", "04f2", "b6be", "fixed"}, 1);
  ComPtr<IBaseFilter> filter;
  ASSERT_EQ(BindCamera(BuiltInCameraName(), filter), S_OK);
  kernel.Fail(VIDIOC_ENUM_FMT, EIO);
  std::vector<MediaType> types;
  kernel.Unplug("1-5", {1});
  EXPECT_EQ(ListMediaTypes(*FindPin(*filter.Get(), PINDIR_OUTPUT).Get(), types), kDeviceGone);
}

TEST_F(BuiltInSelectionTest, SelectsACameraBehindManyBridgesAndHubs) {
  UsbNode node{"1-1.2.3.4.5"};
  node.controller =
      "pci0000:00/0000:00:1c.0/0000:02:00.0/0000:03:01.0/0000:05:00.0/0000:06:02.0/0000:08:00.0/"
      "0000:09:02.0/0000:0b:00.0/0000:0c:01.0/0000:0e:00.0/0000:0f:02.0/0000:11:00.0/0000:12:02.0/"
      "0000:14:00.0/0000:15:02.0";
  for (const char* const hub : {"1-1", "1-1.2", "1-1.2.3", "1-1.2.3.4"}) {
    UsbNode fixedHub{hub, "05e3", "0610", "fixed", {0}};
    fixedHub.controller = node.controller;
    kernel.Tree().AddUsb(fixedHub);
  }
  AddCamera(node, 0);
  EXPECT_THAT(BuiltInCameraName(), HasSubstr("usb#vid_04f2&pid_b6be&mi_00#"));
}

TEST_F(BuiltInSelectionTest, SelectsACameraOnALaterInterface) {
  AddCamera({"1-5", "04f2", "b6be", "fixed", {0, 2}}, 0, 2);
  EXPECT_THAT(BuiltInCameraName(), HasSubstr("mi_02#"));
}

TEST_F(BuiltInSelectionTest, SelectsTheColourCameraBeforeAnInfraredOne) {
  AddCamera({"1-5", "04f2", "b6be", "fixed", {0, 1, 2, 3}}, 0);
  AddFunction("1-5", 2, 2, Infrared());
  EXPECT_THAT(BuiltInCameraName(), HasSubstr("mi_00#"));
}

TEST_F(BuiltInSelectionTest, SelectsTheColourCameraAfterAnInfraredOne) {
  kernel.Tree().AddUsb({"1-5", "04f2", "b6be", "fixed", {0, 1, 2, 3}});
  AddFunction("1-5", 0, 0, Infrared());
  AddFunction("1-5", 2, 2);
  EXPECT_THAT(BuiltInCameraName(), HasSubstr("mi_02#"));
}

TEST_F(BuiltInSelectionTest, SelectsTheColourCameraIfAnInfraredOneIsOnALowerPort) {
  kernel.Tree().AddUsb({"1-4", "04f2", "b6bf", "fixed", {0, 1}});
  AddFunction("1-4", 0, 0, Infrared());
  AddCamera({"1-5"}, 1);
  EXPECT_THAT(BuiltInCameraName(), HasSubstr("usb#vid_04f2&pid_b6be&mi_00#"));
}

TEST_F(BuiltInSelectionTest, IgnoresInfraredCameras) {
  kernel.Tree().AddUsb({"1-5"});
  AddFunction("1-5", 0, 0, Infrared());
  EXPECT_EQ(BuiltInCameraName(), "");
}

TEST_F(BuiltInSelectionTest, FollowsUnpluggingAndReplugging) {
  AddLaptopCamera();
  const std::string name = BuiltInCameraName();
  EXPECT_NE(name, "");
  UnplugLaptopCamera();
  EXPECT_EQ(BuiltInCameraName(), "");
  AddLaptopCamera();
  EXPECT_EQ(BuiltInCameraName(), name);
}

}  // namespace
}  // namespace linux_support
