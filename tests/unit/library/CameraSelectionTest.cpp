// Finding, counting and binding the built-in camera. The fault injection tests the failure of each call.
#include <stdexcept>

#include "support/CameraOperatorTest.h"

namespace {

using support::CameraOperatorTest;

using CameraSelection = CameraOperatorTest;
using scripted::BuiltInCamera;
using scripted::Camera;
using scripted::Fails;
using scripted::FailsWithOutput;
using scripted::kBuiltInDisplayName;
using scripted::kBuiltInId;
using scripted::kPlugInId;
using scripted::PlugInCamera;
using scripted::SucceedsWithNull;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::ThrowsMessage;

const std::string kBuiltInUtf8(kBuiltInDisplayName.begin(), kBuiltInDisplayName.end());

TEST_F(CameraSelection, IgnoresPlugInCamera) {
  platform.SetPc({{{DN_REMOVABLE, kPlugInId}}, {PlugInCamera()}});
  EXPECT_EQ(camera->CameraCount(), 0U);
  EXPECT_THAT(Access::CameraNames(*camera), IsEmpty());
  EXPECT_THAT(platform.Logs(), IsEmpty());
}

TEST_F(CameraSelection, SelectsBuiltInCameraNextToPlugInCamera) {
  EXPECT_EQ(camera->CameraCount(), 1U);
  EXPECT_THAT(Access::CameraNames(*camera), ElementsAre(kBuiltInUtf8));
  ComPtr<IBaseFilter> filter;
  platform.ClearJournal();
  EXPECT_TRUE(camera->BindDeviceFilter(0, filter.Put()));
  EXPECT_TRUE(filter);
  EXPECT_THAT(platform.Calls(), Contains("IMoniker::BindToObject(built-in, IID_IBaseFilter)"));
}

TEST_F(CameraSelection, SelectsTheCameraOfTheFirstUsbDevice) {
  const std::string infraredId = R"(USB\VID_04F2&PID_B6BF&MI_02\6&AAAA&0&0002)";
  const std::wstring infraredName = LR"(@device:pnp:\\?\usb#vid_04f2&pid_b6bf&mi_02#6&aaaa&0&0002#{65e8})";
  const Camera infrared{"infrared", infraredName, {}};
  // The outer loop is over ids, the inner one over display names.
  platform.SetPc({{{0, kBuiltInId}, {0, infraredId}}, {infrared, BuiltInCamera({})}});
  EXPECT_EQ(camera->CameraCount(), 1U);
  EXPECT_THAT(Access::CameraNames(*camera), ElementsAre(kBuiltInUtf8));
}

TEST_F(CameraSelection, IgnoresUsbDeviceWithoutChildNode) {
  platform.SetPc({{{0, ""}}, {BuiltInCamera({})}});
  EXPECT_EQ(camera->CameraCount(), 0U);
  EXPECT_THAT(platform.Calls(), Contains("CM_Get_Child(0, 0)"));
  EXPECT_THAT(platform.Calls(), Not(Contains(HasSubstr("CM_Get_Device_IDA"))));
}

TEST_F(CameraSelection, ComparesLowerCaseIdWithUnchangedDisplayName) {
  std::wstring upper = kBuiltInDisplayName;
  upper.replace(upper.find(L"vid_04f2"), 8, L"VID_04F2");
  platform.SetPc({{{0, kBuiltInId}}, {{"built-in", upper, {}}}});
  EXPECT_EQ(camera->CameraCount(), 0U);
  EXPECT_EQ(camera->FindPCCameraName({"x usb#vid_04f2&pid_b6be&mi_00#6&1a2b3c&0&0000 y"}),
            "x usb#vid_04f2&pid_b6be&mi_00#6&1a2b3c&0&0000 y");
  EXPECT_EQ(camera->FindPCCameraName({"USB#VID_04F2&PID_B6BE&MI_00#6&1A2B3C&0&0000"}), "");
  EXPECT_EQ(camera->FindPCCameraName({}), "");
}

TEST_F(CameraSelection, IndexBeyondTheCountFailsWithoutLogging) {
  EXPECT_EQ(camera->CameraCount(), 1U);
  platform.ClearJournal();
  IBaseFilter* filter = nullptr;
  EXPECT_FALSE(camera->BindDeviceFilter(1, &filter));
  EXPECT_EQ(filter, nullptr);
  EXPECT_THAT(platform.Journal(), IsEmpty());
}

TEST_F(CameraSelection, CameraRemovedAfterTheCountBindsToNullWithSuccess) {
  EXPECT_EQ(camera->CameraCount(), 1U);
  platform.SetPc({{}, {PlugInCamera()}});
  IBaseFilter* filter = nullptr;
  platform.ClearJournal();
  EXPECT_TRUE(camera->BindDeviceFilter(0, &filter));
  EXPECT_EQ(filter, nullptr);
  EXPECT_THAT(platform.Logs(), IsEmpty());
}

TEST_F(CameraSelection, BindsCameraWhoseNameContainsTheCountedName) {
  EXPECT_EQ(camera->CameraCount(), 1U);
  scripted::Camera grown = BuiltInCamera({});
  grown.displayName = L"1 " + grown.displayName + L" 2";
  platform.SetPc({{{0, kBuiltInId}}, {PlugInCamera(), grown}});
  ComPtr<IBaseFilter> filter;
  EXPECT_TRUE(camera->BindDeviceFilter(0, filter.Put()));
  EXPECT_TRUE(filter);
}

TEST_F(CameraSelection, CountRemovesADisconnectedCamera) {
  EXPECT_EQ(camera->CameraCount(), 1U);
  platform.SetPc({{}, {PlugInCamera()}});
  EXPECT_EQ(camera->CameraCount(), 0U);
  EXPECT_THAT(Access::CameraNames(*camera), IsEmpty());
}

TEST_F(CameraSelection, SkipsOnlyTheDeviceWhoseNameCannotBeRead) {
  for (const char* operation : {"CoGetMalloc", "CreateBindCtx", "IMoniker::GetDisplayName"}) {
    for (const scripted::Answer answer : {Fails(), FailsWithOutput(), SucceedsWithNull()}) {
      // The first name is that of the plug-in camera.
      platform.AnswersNth(operation, 1, answer);
      EXPECT_EQ(camera->CameraCount(), 1U) << operation;
    }
  }
}

TEST_F(CameraSelection, FailedResetIsIgnored) {
  platform.Answers("IEnumMoniker::Reset", Fails());
  EXPECT_EQ(camera->CameraCount(), 1U);
}

TEST_F(CameraSelection, EmptyIdDoesNotMatchAnEmptyName) {
  platform.SetPc({{{0, kBuiltInId}}, {{"nameless", std::wstring(), {}}, BuiltInCamera({})}});
  platform.AnswersNth("CM_Get_Device_IDA", 1, SucceedsWithNull());
  EXPECT_EQ(camera->CameraCount(), 1U);
  EXPECT_EQ(Access::CameraNames(*camera).at(0).size(), kBuiltInDisplayName.size());
}

TEST_F(CameraSelection, ConvertsSupplementaryCharactersToUtf8) {
  // On Linux the first of these names has one character where the second has a surrogate pair.
  for (const std::wstring& name : {std::wstring(L"x \U0001F4F7 \u00E9"),
                                   L"x " + std::wstring{wchar_t{0xD83D}, wchar_t{0xDCF7}} + L" \u00E9"}) {
    platform.SetPc({{{0, "X"}}, {{"emoji", name, {}}}});
    EXPECT_EQ(camera->CameraCount(), 1U);
    EXPECT_THAT(Access::CameraNames(*camera), ElementsAre("x \xF0\x9F\x93\xB7 \xC3\xA9"));
  }
  // The last character without and the first with a surrogate pair.
  platform.SetPc({{{0, "X"}}, {{"boundary", L"x\uFFFF\U00010000", {}}}});
  EXPECT_EQ(camera->CameraCount(), 1U);
  EXPECT_THAT(Access::CameraNames(*camera), ElementsAre("x\xEF\xBF\xBF\xF0\x90\x80\x80"));
}

TEST_F(CameraSelection, NameThatIsNotUtf16IsABadConversion) {
  constexpr wchar_t kHigh{0xD83D};
  constexpr wchar_t kLow{0xDCF7};
  std::vector<std::wstring> names{{L'x', kHigh},
                                  {L'x', kHigh, L'x'},
                                  {L'x', kHigh, kHigh, kLow},
                                  {L'x', kLow, L'x'},
                                  {L'x', kHigh, kLow, kLow}};
  if constexpr (sizeof(wchar_t) > 2) {
    names.push_back({L'x', static_cast<wchar_t>(0x110000)});
    names.push_back({L'x', kHigh, static_cast<wchar_t>(0x1F4F7)});
  }
  for (const std::wstring& name : names) {
    platform.SetPc({{{0, "X"}}, {{"malformed", name, {}}}});
    EXPECT_THAT([&] { camera->CameraCount(); }, ThrowsMessage<std::range_error>("bad conversion"));
    EXPECT_THAT(Access::CameraNames(*camera), IsEmpty());
  }
}

// --- Fixed USB devices ---

TEST_F(CameraSelection, FailedDeviceInformationSetFindsNoIds) {
  platform.Answers("SetupDiGetClassDevsW", Fails());
  EXPECT_THAT(camera->QueryFixedUsbDeviceIds(), IsEmpty());
  EXPECT_THAT(platform.Calls(), ElementsAre("SetupDiGetClassDevsW(GUID_DEVINTERFACE_USB_DEVICE, 26)"));
}

TEST_F(CameraSelection, ReturnsIdsOfFixedDevicesInOrderOfTheSet) {
  platform.SetPc({{{0, "A\\1"},
                   {DN_REMOVABLE, "B\\2"},
                   {0, "C\\3"},
                   {0x8000 | DN_REMOVABLE, "D\\4"},
                   {~ULONG{DN_REMOVABLE}, "E\\5"}},
                  {}});
  EXPECT_THAT(camera->QueryFixedUsbDeviceIds(), ElementsAre("A\\1", "C\\3", "E\\5"));
  EXPECT_THAT(platform.Logs(), IsEmpty());
}

TEST_F(CameraSelection, FailedCallSkipsOnlyItsDevice) {
  platform.SetPc({{{0, "A"}, {0, "B"}}, {}});
  for (const char* operation : {"SetupDiGetDeviceInterfaceDetailW", "SetupDiEnumDeviceInfo",
                                "CM_Get_DevNode_Status", "CM_Get_Child", "CM_Get_Device_IDA"}) {
    for (const scripted::Answer answer : {FailsWithOutput(), Fails()}) {
      platform.AnswersNth(operation, 1, answer);
      EXPECT_THAT(camera->QueryFixedUsbDeviceIds(), ElementsAre("B")) << operation;
    }
  }
}

TEST_F(CameraSelection, SuccessWithoutOutputSkipsOnlyItsDevice) {
  platform.SetPc({{{0, "A"}, {0, "B"}}, {}});
  for (const char* operation : {"SetupDiEnumDeviceInfo", "CM_Get_DevNode_Status", "CM_Get_Child"}) {
    platform.AnswersNth(operation, 1, SucceedsWithNull());
    EXPECT_THAT(camera->QueryFixedUsbDeviceIds(), ElementsAre("B")) << operation;
  }
}

TEST_F(CameraSelection, EmptyInstanceIdIsReturned) {
  platform.SetPc({{{0, "A"}, {0, "B"}}, {}});
  platform.AnswersNth("CM_Get_Device_IDA", 1, SucceedsWithNull());
  EXPECT_THAT(camera->QueryFixedUsbDeviceIds(), ElementsAre("", "B"));
}

TEST_F(CameraSelection, FailedInterfaceEnumerationEndsTheSearch) {
  platform.SetPc({{{0, "A"}, {0, "B"}, {0, "C"}}, {}});
  platform.AnswersNth("SetupDiEnumDeviceInterfaces", 2, Fails());
  EXPECT_THAT(camera->QueryFixedUsbDeviceIds(), ElementsAre("A"));
}

}  // namespace
