#include "support/linux/LinuxTest.h"

#include "support/ProcessCounts_linux.h"
#include "v4l2/SystemCalls.h"

namespace linux_support {
ResourceCounts ResourceCounts::Current(const FakeSystemCalls& kernel) {
  return {com::LiveObjects(), com::LiveTaskBlocks(), support::DescriptorCount(), kernel.OpenHandles(),
          kernel.Mappings()};
}

std::ostream& operator<<(std::ostream& out, const ResourceCounts& holdings) {
  return out << holdings.objects << " objects, " << holdings.taskBlocks << " blocks, " << holdings.descriptors
             << " descriptors, " << holdings.handles << " handles, " << holdings.mappings << " mappings";
}

void LinuxTest::SetUp() {
  v4l2::SetSystemCallsForTesting(&kernel);
  devices::SetDeviceProvider(nullptr);
  m_countsBefore = ResourceCounts::Current(kernel);
}

void LinuxTest::TearDown() {
  EXPECT_EQ(ResourceCounts::Current(kernel), m_countsBefore);
  EXPECT_THAT(kernel.Misuse(), ::testing::IsEmpty());
  v4l2::SetSystemCallsForTesting(nullptr);
}

FakeV4l2Device& LinuxTest::AddLaptopCamera(VideoDeviceSettings settings) {
  UsbNode camera{"1-5"};
  camera.connectType = "hardwired";
  kernel.Tree().AddUsb(camera);
  kernel.Tree().AddVideoOfUsb(0, "1-5:1.0", settings.card, 0);
  kernel.Tree().AddVideoOfUsb(1, "1-5:1.0", settings.card, 1);
  VideoDeviceSettings metadata;
  metadata.nodeCapabilities = V4L2_CAP_META_CAPTURE | V4L2_CAP_STREAMING;
  metadata.formats.clear();
  kernel.AddDevice(1, std::move(metadata));
  return kernel.AddDevice(0, std::move(settings));
}

FakeV4l2Device& LinuxTest::AddPluggedInCamera(const std::string& usbName, int number,
                                              VideoDeviceSettings settings) {
  kernel.Tree().AddUsb({usbName, "046d", "0825", "removable"});
  kernel.Tree().AddVideoOfUsb(number, usbName + ":1.0", settings.card, 0);
  return kernel.AddDevice(number, std::move(settings));
}

}  // namespace linux_support
