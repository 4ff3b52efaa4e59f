// The USB devices of the fixtures, read through SetupAPI and the configuration manager.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <filesystem>

#include "SetupApi.h"
#include "support/windows/CameraFixtures.h"

using fixtures::Camera;
using fixtures::Pc;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

struct UsbDevice {
  std::string id;
  bool isRemovable = false;
  std::string childId;

  friend bool operator==(const UsbDevice&, const UsbDevice&) = default;
};

std::ostream& operator<<(std::ostream& out, const UsbDevice& device) {
  return out << device.id << (device.isRemovable ? " removable" : " fixed") << ", child " << device.childId;
}

std::string IdOf(DEVINST device) {
  std::array<char, 256> id{};
  return CM_Get_Device_IDA(device, id.data(), static_cast<ULONG>(id.size()), 0) == CR_SUCCESS ? id.data()
                                                                                              : "?";
}

UsbDevice Describe(DEVINST device) {
  UsbDevice described;
  described.id = IdOf(device);
  ULONG status = 0;
  ULONG problem = 0;
  EXPECT_EQ(CM_Get_DevNode_Status(&status, &problem, device, 0), CR_SUCCESS);
  EXPECT_NE(status & DN_STARTED, 0U);
  described.isRemovable = (status & DN_REMOVABLE) != 0;
  DEVINST child = 0;
  if (const CONFIGRET found = CM_Get_Child(&child, device, 0); found == CR_SUCCESS) {
    described.childId = IdOf(child);
  } else {
    EXPECT_EQ(found, CR_NO_SUCH_DEVNODE);
  }
  return described;
}

std::vector<UsbDevice> PresentUsbDevices() {
  std::vector<UsbDevice> devices;
  const HDEVINFO set = SetupDiGetClassDevsW(&GUID_DEVINTERFACE_USB_DEVICE, nullptr, nullptr,
                                            DIGCF_PRESENT | DIGCF_PROFILE | DIGCF_DEVICEINTERFACE);
  for (DWORD index = 0;; ++index) {
    SP_DEVICE_INTERFACE_DATA data{};
    data.cbSize = sizeof(data);
    SP_DEVINFO_DATA device{};
    device.cbSize = sizeof(device);
    if (SetupDiEnumDeviceInterfaces(set, nullptr, &GUID_DEVINTERFACE_USB_DEVICE, index, &data) == FALSE) {
      break;
    }
    DWORD size = 0;
    SetupDiGetDeviceInterfaceDetailW(set, &data, nullptr, 0, &size, &device);
    EXPECT_GT(size, 0U);
    devices.push_back(Describe(device.DevInst));
  }
  SetupDiDestroyDeviceInfoList(set);
  return devices;
}

class UsbRegistryTest : public ::testing::Test {
 protected:
  UsbRegistryTest() { fixtures::UsePc(Pc::kLaptop); }
  ~UsbRegistryTest() override { fixtures::UsePc(Pc::kLaptop); }

  const UsbDevice builtIn{fixtures::kBuiltInUsbId, false, fixtures::kBuiltInChildId};
  const UsbDevice plugIn{fixtures::kPlugInUsbId, true, fixtures::kPlugInChildId};
};

TEST_F(UsbRegistryTest, LaptopHasAFixedAndARemovableCamera) {
  EXPECT_THAT(PresentUsbDevices(), ElementsAre(plugIn, builtIn));
}

TEST_F(UsbRegistryTest, ListsOnlyTheDevicesOfThePc) {
  fixtures::UsePc(Pc::kNoCamera);
  EXPECT_THAT(PresentUsbDevices(), IsEmpty());
  fixtures::UsePc(Pc::kOnlyPlugIn);
  EXPECT_THAT(PresentUsbDevices(), ElementsAre(plugIn));
  fixtures::SetUsbDevicePresent(Camera::kBuiltIn, true);
  fixtures::SetUsbDevicePresent(Camera::kPlugIn, false);
  EXPECT_THAT(PresentUsbDevices(), ElementsAre(builtIn));
}

TEST_F(UsbRegistryTest, ReportsConfiguredRemovabilityAndChild) {
  fixtures::SetRemovable(Camera::kPlugIn, false);
  fixtures::SetRemovable(Camera::kBuiltIn, true);
  fixtures::SetChildId(Camera::kPlugIn, "");
  fixtures::SetChildId(Camera::kBuiltIn, R"(USB\OTHER\1)");
  EXPECT_THAT(PresentUsbDevices(), ElementsAre(UsbDevice{fixtures::kPlugInUsbId, false, ""},
                                               UsbDevice{fixtures::kBuiltInUsbId, true, R"(USB\OTHER\1)"}));
}

TEST_F(UsbRegistryTest, ChangingAnAbsentDeviceThrows) {
  fixtures::UsePc(Pc::kNoCamera);
  EXPECT_THROW(fixtures::SetRemovable(Camera::kBuiltIn, true), std::system_error);
  EXPECT_THROW(fixtures::SetChildId(Camera::kPlugIn, ""), std::system_error);
}

TEST_F(UsbRegistryTest, RejectsUnknownHandlesAndSmallBuffers) {
  std::array<char, 8> id{};
  DEVINST child = 0;
  const HDEVINFO set = SetupDiGetClassDevsW(&GUID_DEVINTERFACE_USB_DEVICE, nullptr, nullptr,
                                            DIGCF_PRESENT | DIGCF_DEVICEINTERFACE);
  SP_DEVINFO_DATA device{};
  device.cbSize = sizeof(device);
  ASSERT_NE(SetupDiEnumDeviceInfo(set, 0, &device), FALSE);
  ASSERT_EQ(CM_Get_Child(&child, device.DevInst, 0), CR_SUCCESS);
  EXPECT_EQ(CM_Get_Device_IDA(child, id.data(), static_cast<ULONG>(id.size()), 0), CR_BUFFER_SMALL);
  EXPECT_EQ(CM_Get_Device_IDA(child + 1000, id.data(), static_cast<ULONG>(id.size()), 0), CR_INVALID_DEVNODE);
  SetupDiDestroyDeviceInfoList(set);
}

// install_camera copies the replacement into the prefix's system folder.
TEST_F(UsbRegistryTest, ReplacedConfigurationManagerIsLoadedFromTheSystemFolder) {
  std::array<wchar_t, MAX_PATH> used{};
  std::array<wchar_t, MAX_PATH> system{};
  GetModuleFileNameW(GetModuleHandleW(L"cfgmgr32.dll"), used.data(), MAX_PATH);
  GetSystemDirectoryW(system.data(), MAX_PATH);
  EXPECT_TRUE(
      std::filesystem::equivalent(used.data(), std::filesystem::path(system.data()) / "cfgmgr32.dll"));
  EXPECT_NE(GetProcAddress(GetModuleHandleW(L"cfgmgr32.dll"), "CM_Locate_DevNodeW"), nullptr);
}

}  // namespace
