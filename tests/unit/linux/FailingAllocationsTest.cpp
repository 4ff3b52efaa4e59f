// What FailingAllocations fails; a test that fails fewer allocations than it should would pass.
#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <string>
#include <thread>

#include "DirectShow.h"
#include "SetupApi.h"
#include "com/ComPtr.h"
#include "devices/DeviceProvider.h"
#include "support/FailingAllocations.h"

namespace {

constexpr const char* kPlatformLibrary = "libnuveqplatform";
// Too long for the small-string buffer.
constexpr std::size_t kLongText = 100;

// Makes one call of operator new in the platform library.
HRESULT MakeBindContext() {
  ComPtr<IBindCtx> context;
  return CreateBindCtx(0, context.Put());
}

// Has one USB device with a long id.
class UsbDeviceProvider : public devices::DeviceProvider {
 public:
  std::vector<devices::CaptureDevice> CaptureDevices() override { return {}; }
  std::vector<devices::UsbDevice> UsbDevices() override { return {{std::string(kLongText, 'X'), false, ""}}; }
};

TEST(FailingAllocationsTest, FailsTheNthAllocationOnceOrPersistently) {
  FailingAllocations allocations = FailingAllocations::InLibraries({kPlatformLibrary});
  EXPECT_EQ(MakeBindContext(), S_OK);
  EXPECT_EQ(allocations.Count(), 1U);
  allocations.FailNth(2, Persistence::kTransient);
  EXPECT_EQ(MakeBindContext(), S_OK);
  EXPECT_FALSE(allocations.HasFailed());
  EXPECT_EQ(MakeBindContext(), E_OUTOFMEMORY);
  EXPECT_TRUE(allocations.HasFailed());
  EXPECT_EQ(MakeBindContext(), S_OK);
  EXPECT_EQ(allocations.Count(), 3U);
  allocations.FailNth(2, Persistence::kPersistent);
  EXPECT_EQ(MakeBindContext(), S_OK);
  EXPECT_EQ(MakeBindContext(), E_OUTOFMEMORY);
  EXPECT_EQ(MakeBindContext(), E_OUTOFMEMORY);
  EXPECT_EQ(allocations.Failures(), 2U);
  allocations.FailNothing();
  EXPECT_EQ(MakeBindContext(), S_OK);
  EXPECT_EQ(allocations.Count(), 4U);
}

TEST(FailingAllocationsTest, IncludesAllocationsOfTheStandardLibraryOnBehalfOfTheNamedOne) {
  devices::SetDeviceProvider(std::make_shared<UsbDeviceProvider>());
  HDEVINFO set = SetupDiGetClassDevsW(&GUID_DEVINTERFACE_USB_DEVICE, nullptr, nullptr, 0);
  SP_DEVINFO_DATA device{};
  device.cbSize = sizeof(device);
  ASSERT_EQ(SetupDiEnumDeviceInfo(set, 0, &device), TRUE);
  std::array<char, 2 * kLongText> id{};
  {
    FailingAllocations allocations = FailingAllocations::InLibraries({kPlatformLibrary});
    allocations.FailNth(1, Persistence::kTransient);
    // Copies a string; the allocation is made by code of the standard library.
    EXPECT_NE(CM_Get_Device_IDA(device.DevInst, id.data(), id.size(), 0), CR_SUCCESS);
    EXPECT_TRUE(allocations.HasFailed());
    EXPECT_EQ(CM_Get_Device_IDA(device.DevInst, id.data(), id.size(), 0), CR_SUCCESS);
  }
  EXPECT_EQ(id.data(), std::string(kLongText, 'X'));
  SetupDiDestroyDeviceInfoList(set);
  devices::SetDeviceProvider(nullptr);
}

TEST(FailingAllocationsTest, AffectsEveryThread) {
  FailingAllocations allocations = FailingAllocations::InLibraries({kPlatformLibrary});
  allocations.FailNth(2, Persistence::kTransient);
  EXPECT_EQ(MakeBindContext(), S_OK);
  std::thread([] { EXPECT_EQ(MakeBindContext(), E_OUTOFMEMORY); }).join();
}

TEST(FailingAllocationsTest, AffectsMallocWithoutASanitizer) {
  FailingAllocations allocations = FailingAllocations::InLibraries({kPlatformLibrary});
  allocations.FailNth(1, Persistence::kPersistent);
  void* const block = CoTaskMemAlloc(1);
  EXPECT_EQ(block == nullptr, FailingAllocations::ReachesMalloc());
  EXPECT_EQ(allocations.HasFailed(), FailingAllocations::ReachesMalloc());
  CoTaskMemFree(block);
}

}  // namespace
