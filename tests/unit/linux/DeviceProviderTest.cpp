// DeviceProvider: the system's, and a host's in its place.
#include <algorithm>
#include <map>
#include <thread>

#include "support/linux/LinuxTest.h"

namespace linux_support {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::Pair;
using ::testing::SizeIs;

// A host's provider: one USB camera whose source cannot be made.
class HostDeviceProvider : public devices::DeviceProvider {
 public:
  std::vector<devices::CaptureDevice> CaptureDevices() override {
    return {{"@device:usb#vid_1111&pid_2222&mi_00#host#camera", "Host's camera", "nowhere", "",
             [] { return std::unique_ptr<graph::CaptureSource>(); }}};
  }
  std::vector<devices::UsbDevice> UsbDevices() override {
    return {{"USB\\VID_1111&PID_2222\\HOST", false, "USB\\VID_1111&PID_2222&MI_00\\HOST"}};
  }
};

class DeviceProviderTest : public LinuxTest {
 protected:
  void TearDown() override {
    devices::SetDeviceProvider(nullptr);
    LinuxTest::TearDown();
  }
  // Expects an exclusion reason for every camera except the built-in one.
  static void ExpectReasonsFor(std::size_t cameras) {
    const std::vector<devices::CaptureDevice> devices = devices::CurrentDeviceProvider()->CaptureDevices();
    const std::string builtIn = BuiltInCameraName();
    EXPECT_THAT(devices, SizeIs(cameras));
    for (const devices::CaptureDevice& device : devices) {
      EXPECT_EQ(device.exclusionReason.empty(), device.displayName == builtIn)
          << device.displayName << ": " << device.exclusionReason;
    }
  }
  // By the names of the nodes.
  static std::map<std::string, std::string> ExclusionReasons() {
    std::map<std::string, std::string> reasons;
    for (const devices::CaptureDevice& device : devices::CurrentDeviceProvider()->CaptureDevices()) {
      reasons[std::filesystem::path(device.node).filename().string()] = device.exclusionReason;
    }
    return reasons;
  }
  void AddCamera(const UsbNode& node, int number, int interface = 0) {
    kernel.Tree().AddUsb(node);
    kernel.Tree().AddVideoOfUsb(number, node.name + ":1." + std::to_string(interface), "Camera", 0);
    kernel.AddDevice(number);
  }
};

TEST_F(DeviceProviderTest, ReportsNameAndNodeOfACamera) {
  VideoDeviceSettings settings;
  settings.card =
      "Cam\xC3\xA9ra int\xC3\xA9gr\xC3\xA9"
      "e";
  AddLaptopCamera(settings);
  const std::vector<devices::CaptureDevice> devices = devices::CurrentDeviceProvider()->CaptureDevices();
  ASSERT_THAT(devices, SizeIs(1));
  EXPECT_EQ(devices.front().name, settings.card);
  EXPECT_EQ(devices.front().node, (kernel.DevRoot() / "video0").string());
  EXPECT_EQ(devices.front().displayName, DisplayNames().front());
}

TEST_F(DeviceProviderTest, GivesAnExclusionReasonForEveryOtherCamera) {
  AddLaptopCamera();
  ExpectReasonsFor(1);
  AddPluggedInCamera("1-2", 2);
  ExpectReasonsFor(2);
  AddCamera({"1-3", "046d", "0825", "unknown"}, 3);
  ExpectReasonsFor(3);
  kernel.Tree().AddVideoOf(4, "platform/vivid.0", "vivid", 0);
  kernel.AddDevice(4);
  ExpectReasonsFor(4);
  AddCamera({"1-6", "04f2", "b6bf"}, 5);
  ExpectReasonsFor(5);
  kernel.Tree().AddUsb({"1-7", "05e3", "0610", "removable", {0}});
  AddCamera({"1-7.1"}, 6);
  ExpectReasonsFor(6);
  AddCamera({"1-8", "04f2", "b6c0", "fixed", {0, 2}}, 7, 2);
  ExpectReasonsFor(7);
  UnplugLaptopCamera();
  ExpectReasonsFor(6);
}

TEST_F(DeviceProviderTest, OtherFixedDevicesAreNotTheBuiltInCamera) {
  kernel.Tree().AddUsb({"1-3", "0bda", "0129", "fixed", {0}});
  kernel.Tree().AddUsb({"1-4", "0bda", "0130", "fixed", {}});
  AddPluggedInCamera("1-2", 2);
  AddLaptopCamera();
  ExpectReasonsFor(2);
}

TEST_F(DeviceProviderTest, ExclusionReasonsNameTheCause) {
  AddPluggedInCamera("1-2", 2);
  AddCamera({"1-3", "046d", "0825", "unknown"}, 3);
  AddCamera({"1-4", "046d", "0825", std::nullopt}, 4);
  kernel.Tree().AddUsb({"1-7", "05e3", "0610", "removable", {0}});
  AddCamera({"1-7.1"}, 5);
  kernel.Tree().AddVideoOf(6, "platform/vivid.0", "vivid", 0);
  kernel.AddDevice(6);
  EXPECT_THAT(
      ExclusionReasons(),
      ElementsAre(Pair("video2", "its USB device is removable"),
                  Pair("video3", "the firmware does not declare its USB port internal"),
                  Pair("video4", "the kernel does not report whether its USB device is removable"),
                  Pair("video5", "it is connected to a USB hub that is removable or treated as removable"),
                  Pair("video6", "it is not a USB device")));
}

TEST_F(DeviceProviderTest, ExclusionReasonsOfBuiltInCamerasDiffer) {
  AddLaptopCamera();
  kernel.Tree().AddVideoOfUsb(2, "1-5:1.0", "Second node", 2);
  kernel.AddDevice(2);
  kernel.Tree().AddVideoOfUsb(3, "1-5:1.1", "Second function", 0);
  kernel.AddDevice(3);
  AddCamera({"1-6", "04f2", "b6bf"}, 4);
  kernel.Tree().AddVideoOfUsb(5, "1-6:1.1", "Second function", 0);
  kernel.AddDevice(5);
  EXPECT_THAT(ExclusionReasons(),
              ElementsAre(Pair("video0", ""), Pair("video2", "it is another node of the selected camera"),
                          Pair("video3", "it is not the first camera of its USB device"),
                          Pair("video4", "another built-in camera comes first"),
                          Pair("video5", "it is not the first camera of its USB device")));
}

TEST_F(DeviceProviderTest, HostProviderReplacesTheSystemProvider) {
  AddLaptopCamera();
  const auto provider = std::make_shared<HostDeviceProvider>();
  devices::SetDeviceProvider(provider);
  EXPECT_EQ(devices::CurrentDeviceProvider(), provider);
  EXPECT_THAT(DisplayNames(), ElementsAre(HasSubstr("#host#")));
  EXPECT_EQ(BuiltInCameraName(), DisplayNames().front());
  devices::SetDeviceProvider(nullptr);
  EXPECT_NE(devices::CurrentDeviceProvider(), nullptr);
  EXPECT_THAT(DisplayNames(), ElementsAre(Not(HasSubstr("#host#"))));
}

TEST_F(DeviceProviderTest, BindingFailsIfTheSourceCannotBeMade) {
  devices::SetDeviceProvider(std::make_shared<HostDeviceProvider>());
  void* notNull = this;
  EXPECT_EQ(ListCaptureDevices().front().moniker->BindToObject(nullptr, nullptr, IID_IBaseFilter, &notNull),
            E_FAIL);
  EXPECT_EQ(notNull, nullptr);
}

// A host's provider may leave out what it does not know.
TEST_F(DeviceProviderTest, UnsetDetailsAreSafeDefaults) {
  EXPECT_TRUE(devices::UsbDevice().isRemovable);
  EXPECT_TRUE(devices::UsbDetails().removability.isRemovable);
  EXPECT_FALSE(devices::UsbDetails().removability.isHubRemovable);
  EXPECT_FALSE(devices::UsbDetails().isHub);
  EXPECT_FALSE(devices::UsbDetails().hasVideo);
  EXPECT_EQ(devices::VideoNodeDetails().openError, 0);
}

TEST_F(DeviceProviderTest, CamerasOutliveTheReplacementOfTheirProvider) {
  AddLaptopCamera();
  const ComPtr<IBaseFilter> camera = FirstCamera();
  const std::vector<EnumeratedDevice> devices = ListCaptureDevices();
  devices::SetDeviceProvider(std::make_shared<HostDeviceProvider>());
  EXPECT_EQ(DescribeCurrentFormat(*FindPin(*camera.Get(), PINDIR_OUTPUT).Get()), "YUY2 64x48 333333");
  ComPtr<IBaseFilter> late;
  EXPECT_EQ(devices.front().moniker->BindToObject(nullptr, nullptr, IID_IBaseFilter, late.PutVoid()), S_OK);
}

TEST_F(DeviceProviderTest, CanBeReplacedWhileAnotherThreadReadsIt) {
  AddLaptopCamera();
  std::thread other([] {
    for (int i = 0; i < 100; ++i) {
      devices::SetDeviceProvider(i % 2 == 0 ? std::make_shared<HostDeviceProvider>() : nullptr);
    }
  });
  for (int i = 0; i < 20; ++i) {
    EXPECT_THAT(DisplayNames(), SizeIs(1));
  }
  other.join();
}

}  // namespace
}  // namespace linux_support
