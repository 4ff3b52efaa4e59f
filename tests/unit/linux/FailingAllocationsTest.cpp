// Whose allocations fail, and which of them. The platform stands for any library.
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
// Longer than what a string holds in itself.
constexpr std::size_t kLongText = 100;

// What a library of one object does: one operator new of its own code.
HRESULT MakeBindContext() {
  ComPtr<IBindCtx> context;
  return CreateBindCtx(0, context.Put());
}

// A tree that allocates while the platform asks for it.
class AllocatingTree : public devices::DeviceProvider {
 public:
  std::vector<devices::CaptureDevice> CaptureDevices() override {
    const std::string text(kLongText, 'x');
    return text.empty() ? std::vector<devices::CaptureDevice>(1) : std::vector<devices::CaptureDevice>();
  }
  std::vector<devices::UsbDevice> UsbDevices() override { return {{std::string(kLongText, 'X'), false, ""}}; }
};

TEST(FailingAllocations, AreTheOneOfTheNumberOrAlsoAllLaterOnes) {
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

TEST(FailingAllocations, EndWithTheObject) {
  {
    FailingAllocations allocations = FailingAllocations::InLibraries({kPlatformLibrary});
    allocations.FailNth(1, Persistence::kPersistent);
    EXPECT_EQ(MakeBindContext(), E_OUTOFMEMORY);
  }
  EXPECT_EQ(MakeBindContext(), S_OK);
}

TEST(FailingAllocations, AreOnlyThoseOfTheNamedLibraries) {
  FailingAllocations allocations = FailingAllocations::InLibraries({"libnuveq", "nuveqplatform", "libother"});
  allocations.FailNth(1, Persistence::kPersistent);
  EXPECT_EQ(MakeBindContext(), S_OK);
  EXPECT_EQ(allocations.Count(), 0U);
}

TEST(FailingAllocations, AreNeverThoseOfTheProgramNorInItsFunctionsThatALibraryCalls) {
  devices::SetDeviceProvider(std::make_shared<AllocatingTree>());
  {
    FailingAllocations allocations = FailingAllocations::InLibraries({kPlatformLibrary});
    allocations.FailNth(2, Persistence::kPersistent);
    const std::string own(kLongText, 'x');
    ComPtr<ICreateDevEnum> devices;
    ComPtr<IEnumMoniker> monikers;
    // The first allocation; the enumeration itself takes none of the platform's.
    ASSERT_EQ(CoCreateInstance(CLSID_SystemDeviceEnum, nullptr, CLSCTX_INPROC_SERVER, IID_ICreateDevEnum,
                               devices.PutVoid()),
              S_OK);
    EXPECT_EQ(devices->CreateClassEnumerator(CLSID_VideoInputDeviceCategory, monikers.Put(), 0), S_FALSE);
    EXPECT_EQ(allocations.Count(), 1U);
  }
  devices::SetDeviceProvider(nullptr);
}

TEST(FailingAllocations, AreAlsoThoseThatTheStandardLibraryMakesForTheNamedOne) {
  devices::SetDeviceProvider(std::make_shared<AllocatingTree>());
  HDEVINFO set = SetupDiGetClassDevsW(&GUID_DEVINTERFACE_USB_DEVICE, nullptr, nullptr, 0);
  SP_DEVINFO_DATA device{};
  device.cbSize = sizeof(device);
  ASSERT_EQ(SetupDiEnumDeviceInfo(set, 0, &device), TRUE);
  std::array<char, 2 * kLongText> id{};
  {
    FailingAllocations allocations = FailingAllocations::InLibraries({kPlatformLibrary});
    allocations.FailNth(1, Persistence::kTransient);
    // Copies a string, which the standard library's own code does.
    EXPECT_NE(CM_Get_Device_IDA(device.DevInst, id.data(), id.size(), 0), CR_SUCCESS);
    EXPECT_TRUE(allocations.HasFailed());
    EXPECT_EQ(CM_Get_Device_IDA(device.DevInst, id.data(), id.size(), 0), CR_SUCCESS);
  }
  EXPECT_EQ(id.data(), std::string(kLongText, 'X'));
  SetupDiDestroyDeviceInfoList(set);
  devices::SetDeviceProvider(nullptr);
}

TEST(FailingAllocations, AreThoseOfEveryThread) {
  FailingAllocations allocations = FailingAllocations::InLibraries({kPlatformLibrary});
  allocations.FailNth(2, Persistence::kTransient);
  EXPECT_EQ(MakeBindContext(), S_OK);
  std::thread([] { EXPECT_EQ(MakeBindContext(), E_OUTOFMEMORY); }).join();
}

TEST(FailingAllocations, ReachMallocWhereNoSanitizerOwnsIt) {
  FailingAllocations allocations = FailingAllocations::InLibraries({kPlatformLibrary});
  allocations.FailNth(1, Persistence::kPersistent);
  void* const block = CoTaskMemAlloc(1);
  EXPECT_EQ(block == nullptr, FailingAllocations::ReachesMalloc());
  EXPECT_EQ(allocations.HasFailed(), FailingAllocations::ReachesMalloc());
  CoTaskMemFree(block);
}

}  // namespace
