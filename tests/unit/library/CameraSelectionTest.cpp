// Finding, counting and binding the built-in camera, and parsing camera ids.
#include "support/CameraOperatorTest.h"

namespace {

using support::CameraOperatorTest;
using support::ErrorLine;

using CameraSelection = CameraOperatorTest;
using scripted::BuiltInCamera;
using scripted::Camera;
using scripted::Fails;
using scripted::FailsWithOutput;
using scripted::kBuiltInDisplayName;
using scripted::kBuiltInId;
using scripted::kPlugInId;
using scripted::PlugInCamera;
using scripted::SFalse;
using scripted::SucceedsWithNull;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

const std::string kBuiltInUtf8(kBuiltInDisplayName.begin(), kBuiltInDisplayName.end());

TEST_F(CameraSelection, IgnoresPlugInCamera) {
  platform.SetPc({{{DN_REMOVABLE, kPlugInId}}, {PlugInCamera()}});
  EXPECT_EQ(camera->CameraCount(), 0U);
  EXPECT_THAT(Access::CameraNames(*camera), IsEmpty());
  EXPECT_THAT(LogLines(), IsEmpty());
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

TEST_F(CameraSelection, EmptyCategoryIsLoggedWithErrorOne) {
  platform.SetPc({{{0, kBuiltInId}}, {}});
  EXPECT_EQ(camera->CameraCount(), 0U);
  EXPECT_THAT(LogLines(), ElementsAre(ErrorLine(573,
                                                "[CameraOperator]fail to create enumrate class, error: 1"
                                                "(CameraOperator::CameraCount)")));
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
  EXPECT_THAT(LogLines(), IsEmpty());
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

TEST_F(CameraSelection, IdsConsistOfDecimalDigits) {
  unsigned int index = 99;
  EXPECT_FALSE(camera->ParseCameraId("12a", 3, &index));
  EXPECT_EQ(index, 99U);
  EXPECT_EQ(Access::CameraId(*camera), "");
  EXPECT_TRUE(camera->ParseCameraId("12a", 2, &index));
  EXPECT_EQ(index, 12U);
  EXPECT_EQ(Access::CameraId(*camera), "12");
  EXPECT_FALSE(camera->ParseCameraId("-1", 2, &index));
  EXPECT_FALSE(camera->ParseCameraId(" 1", 2, &index));
  EXPECT_FALSE(camera->ParseCameraId("\xB2", 1, &index));
  EXPECT_FALSE(camera->ParseCameraId(nullptr, 0, &index));
  EXPECT_EQ(index, 12U);
  EXPECT_EQ(Access::CameraId(*camera), "12");
  EXPECT_TRUE(camera->ParseCameraId("", 0, &index));
  EXPECT_EQ(index, 0U);
  EXPECT_EQ(Access::CameraId(*camera), "");
}

TEST_F(CameraSelection, OverflowingIdsSaturate) {
  unsigned int index = 0;
  EXPECT_TRUE(camera->ParseCameraId("2147483647", 10, &index));
  EXPECT_EQ(index, 2147483647U);
  EXPECT_TRUE(camera->ParseCameraId("2147483648", 10, &index));
  EXPECT_EQ(index, 2147483647U);
  EXPECT_TRUE(camera->ParseCameraId("99999999999999999999", 20, &index));
  EXPECT_EQ(index, 2147483647U);
  EXPECT_EQ(Access::CameraId(*camera), "99999999999999999999");
}

// --- Failures ---

TEST_F(CameraSelection, FailedDeviceEnumeratorCountsZeroAndKeepsTheNames) {
  EXPECT_EQ(camera->CameraCount(), 1U);
  const std::vector<std::pair<scripted::Answer, std::string>> answers = {
      {Fails(), "-2147467259"}, {SFalse(), "1"}, {SucceedsWithNull(), "0"}};
  for (const auto& [answer, code] : answers) {
    platform.ClearJournal();
    platform.AnswersNth("CoCreateInstance", 1, answer);
    EXPECT_EQ(camera->CameraCount(), 0U);
    EXPECT_THAT(LogLines(),
                ElementsAre(ErrorLine(565, "[CameraOperator]fail to create enumrate instance, error:" + code +
                                               "(CameraOperator::CameraCount)")));
    EXPECT_THAT(Access::CameraNames(*camera), ElementsAre(kBuiltInUtf8));
  }
}

TEST_F(CameraSelection, FailedClassEnumeratorCountsZeroAndKeepsTheNames) {
  EXPECT_EQ(camera->CameraCount(), 1U);
  const std::vector<std::pair<scripted::Answer, std::string>> answers = {
      {Fails(), "-2147467259"}, {SFalse(), "1"}, {SucceedsWithNull(), "0"}};
  for (const auto& [answer, code] : answers) {
    platform.ClearJournal();
    platform.AnswersNth("ICreateDevEnum::CreateClassEnumerator", 1, answer);
    EXPECT_EQ(camera->CameraCount(), 0U);
    EXPECT_THAT(LogLines(),
                ElementsAre(ErrorLine(573, "[CameraOperator]fail to create enumrate class, error: " + code +
                                               "(CameraOperator::CameraCount)")));
    EXPECT_THAT(Access::CameraNames(*camera), ElementsAre(kBuiltInUtf8));
  }
}

TEST_F(CameraSelection, CountRemovesADisconnectedCamera) {
  EXPECT_EQ(camera->CameraCount(), 1U);
  platform.SetPc({{}, {PlugInCamera()}});
  EXPECT_EQ(camera->CameraCount(), 0U);
  EXPECT_THAT(Access::CameraNames(*camera), IsEmpty());
}

TEST_F(CameraSelection, SkipsNullMonikers) {
  Camera null;
  null.isNull = true;
  platform.SetPc({{{0, kBuiltInId}}, {null, BuiltInCamera({}), null}});
  EXPECT_EQ(camera->CameraCount(), 1U);
  ComPtr<IBaseFilter> filter;
  EXPECT_TRUE(camera->BindDeviceFilter(0, filter.Put()));
  EXPECT_TRUE(filter);
}

TEST_F(CameraSelection, FailedEnumerationEndsTheList) {
  platform.AnswersNth("IEnumMoniker::Next", 2, Fails());
  EXPECT_EQ(camera->CameraCount(), 0U);
}

TEST_F(CameraSelection, FailedResetIsIgnored) {
  platform.Answers("IEnumMoniker::Reset", Fails());
  EXPECT_EQ(camera->CameraCount(), 1U);
}

TEST_F(CameraSelection, SkipsDeviceWhoseNameCannotBeRead) {
  for (const char* operation : {"CoGetMalloc", "CreateBindCtx", "IMoniker::GetDisplayName"}) {
    for (const scripted::Answer answer : {Fails(), FailsWithOutput(), SFalse(), SucceedsWithNull()}) {
      const unsigned freed = platform.CallCount("IMalloc::Free");
      platform.AnswersNth(operation, 2, answer);
      EXPECT_EQ(camera->CameraCount(), 0U) << operation;
      EXPECT_EQ(platform.CallCount("IMalloc::Free"), freed + 1) << operation;
    }
  }
  EXPECT_THAT(LogLines(), IsEmpty());
}

TEST_F(CameraSelection, SkipsDeviceWithEmptyName) {
  platform.SetPc({{{0, kBuiltInId}}, {{"nameless", {}, {}}}});
  EXPECT_EQ(camera->CameraCount(), 0U);
}

TEST_F(CameraSelection, EmptyIdDoesNotMatchAnEmptyName) {
  platform.SetPc({{{0, kBuiltInId}}, {{"nameless", std::wstring(), {}}, BuiltInCamera({})}});
  platform.AnswersNth("CM_Get_Device_IDA", 1, SucceedsWithNull());
  EXPECT_EQ(camera->CameraCount(), 1U);
  EXPECT_EQ(Access::CameraNames(*camera).at(0).size(), kBuiltInDisplayName.size());
}

TEST_F(CameraSelection, NullMonikerHasEmptyName) {
  EXPECT_EQ(camera->GetMonikerDisplayName(ComPtr<IMoniker>()), "");
  EXPECT_THAT(platform.Calls(), IsEmpty());
}

TEST_F(CameraSelection, ConvertsSupplementaryCharactersToUtf8) {
  platform.SetPc({{{0, "X"}}, {{"emoji", L"x \U0001F4F7 \u00E9", {}}}});
  EXPECT_EQ(camera->CameraCount(), 1U);
  EXPECT_THAT(Access::CameraNames(*camera), ElementsAre("x \xF0\x9F\x93\xB7 \xC3\xA9"));
}

TEST_F(CameraSelection, InvalidUnicodeNameThrowsWithoutLeak) {
  constexpr wchar_t kHigh = 0xD83D;
  constexpr wchar_t kLow = 0xDCF7;
  std::vector<std::wstring> texts{{kHigh, L'x'}, {L'x', kHigh}, {kLow, L'x'}, {L'x', kLow}, {kLow, kHigh}};
  // Code points above U+10FFFF exist only with 32-bit wchar_t.
  if constexpr (constexpr std::uint32_t kBeyond = 0x110000; std::numeric_limits<wchar_t>::max() >= kBeyond) {
    texts.push_back(std::wstring{L'x', static_cast<wchar_t>(kBeyond)});
  }
  for (const std::wstring& text : texts) {
    platform.SetPc({{{0, "X"}}, {{"broken", text, {}}}});
    EXPECT_THROW(camera->CameraCount(), std::range_error);
    EXPECT_THAT(platform.Alive(), IsEmpty());
  }
}

TEST_F(CameraSelection, ConvertsSurrogatePairToOneCharacter) {
  platform.SetPc({{{0, "X"}}, {{"pair", L"x " + std::wstring{wchar_t{0xD83D}, wchar_t{0xDCF7}}, {}}}});
  EXPECT_EQ(camera->CameraCount(), 1U);
  EXPECT_THAT(Access::CameraNames(*camera), ElementsAre("x \xF0\x9F\x93\xB7"));
}

TEST_F(CameraSelection, LongNamesAreNotTruncated) {
  const std::wstring longName = std::wstring(65536, L'x') + kBuiltInDisplayName;
  platform.SetPc({{{0, kBuiltInId}}, {{"long", longName, {}}}});
  EXPECT_EQ(camera->CameraCount(), 1U);
  EXPECT_EQ(Access::CameraNames(*camera).at(0).size(), longName.size());
}

TEST_F(CameraSelection, FailedDeviceInformationSetFindsNoIds) {
  platform.Answers("SetupDiGetClassDevsW", Fails());
  EXPECT_THAT(camera->QueryFixedUsbDeviceIds(), IsEmpty());
  EXPECT_THAT(platform.Calls(), ElementsAre("SetupDiGetClassDevsW(GUID_DEVINTERFACE_USB_DEVICE, 26)"));
}

TEST_F(CameraSelection, ReturnsIdsOfFixedDevicesInOrderOfTheSet) {
  platform.SetPc(
      {{{0, "A\\1"}, {DN_REMOVABLE, "B\\2"}, {0, "C\\3"}, {0x8000 | DN_REMOVABLE, "D\\4"}, {0x8000, "E\\5"}},
       {}});
  EXPECT_THAT(camera->QueryFixedUsbDeviceIds(), ElementsAre("A\\1", "C\\3", "E\\5"));
  EXPECT_THAT(LogLines(), IsEmpty());
}

TEST_F(CameraSelection, FailedCallSkipsOnlyItsDevice) {
  platform.SetPc({{{0, "A"}, {0, "B"}}, {}});
  for (const char* operation : {"SetupDiGetDeviceInterfaceDetailW", "SetupDiEnumDeviceInfo",
                                "CM_Get_DevNode_Status", "CM_Get_Child", "CM_Get_Device_IDA"}) {
    // With outputs written, and without.
    for (const scripted::Answer answer : {scripted::Answer{E_FAIL, false}, Fails()}) {
      platform.AnswersNth(operation, 1, answer);
      EXPECT_THAT(camera->QueryFixedUsbDeviceIds(), ElementsAre("B")) << operation;
    }
  }
}

TEST_F(CameraSelection, SuccessWithoutOutputFindsNoIds) {
  platform.SetPc({{{0, "A"}, {0, "B"}}, {}});
  for (const char* operation : {"CM_Get_DevNode_Status", "CM_Get_Child"}) {
    platform.AnswersNth(operation, 1, SucceedsWithNull());
    EXPECT_THAT(camera->QueryFixedUsbDeviceIds(), ElementsAre("B")) << operation;
  }
}

TEST_F(CameraSelection, MonikerReturnedWithAFailureIsNotReleased) {
  EXPECT_EQ(camera->CameraCount(), 1U);
  for (const scripted::Answer answer : {FailsWithOutput(), SFalse()}) {
    // The second moniker is that of the built-in camera.
    platform.AnswersNth("IEnumMoniker::Next", 2, answer);
    ComPtr<IBaseFilter> filter;
    EXPECT_TRUE(camera->BindDeviceFilter(0, filter.Put()));
    EXPECT_FALSE(filter);
    platform.AnswersNth("IEnumMoniker::Next", 2, answer);
    EXPECT_EQ(camera->CameraCount(), 0U);
    EXPECT_EQ(camera->CameraCount(), 1U);
  }
  EXPECT_THAT(platform.Misuse(), IsEmpty());
}

TEST_F(CameraSelection, FilterReturnedWithAFailureIsNotUsed) {
  EXPECT_EQ(camera->CameraCount(), 1U);
  for (const scripted::Answer answer : {FailsWithOutput(), SFalse()}) {
    platform.AnswersNth("IMoniker::BindToObject", 1, answer);
    IBaseFilter* filter = nullptr;
    EXPECT_FALSE(camera->BindDeviceFilter(0, &filter));
    EXPECT_EQ(filter, nullptr);
  }
}

TEST_F(CameraSelection, UnwrittenDeviceElementIsNotUsed) {
  platform.SetPc({{{0, "A"}, {0, "B"}}, {}});
  platform.AnswersNth("SetupDiEnumDeviceInfo", 1, SucceedsWithNull());
  EXPECT_THAT(camera->QueryFixedUsbDeviceIds(), ElementsAre("B"));
}

TEST_F(CameraSelection, DeviceElementIsReadIntoAZeroedStructure) {
  platform.SetPc({{{0, "A"}, {0, "B"}}, {}});
  EXPECT_THAT(camera->QueryFixedUsbDeviceIds(), ElementsAre("A", "B"));
  EXPECT_THAT(platform.Misuse(), IsEmpty());
}

TEST_F(CameraSelection, EmptyInstanceIdIsReturned) {
  platform.SetPc({{{0, "A"}, {0, "B"}}, {}});
  platform.AnswersNth("CM_Get_Device_IDA", 1, SucceedsWithNull());
  EXPECT_THAT(camera->QueryFixedUsbDeviceIds(), ElementsAre("", "B"));
}

TEST_F(CameraSelection, ThrowingCountLeavesNoUnacceptedCamera) {
  platform.SetPc(
      {{{DN_REMOVABLE, kPlugInId}}, {PlugInCamera(), {"broken", std::wstring(1, wchar_t{0xD800}), {}}}});
  EXPECT_THROW(camera->CameraCount(), std::range_error);
  EXPECT_THAT(Access::CameraNames(*camera), IsEmpty());
  IBaseFilter* filter = nullptr;
  EXPECT_FALSE(camera->BindDeviceFilter(0, &filter));
}

TEST_F(CameraSelection, FailedInterfaceDetailSkipsTheDevice) {
  platform.SetPc({{{0, "A"}}, {}});
  platform.Answers("SetupDiGetDeviceInterfaceDetailW", Fails());
  EXPECT_THAT(camera->QueryFixedUsbDeviceIds(), IsEmpty());
  EXPECT_THAT(platform.Calls(),
              ElementsAre("SetupDiGetClassDevsW(GUID_DEVINTERFACE_USB_DEVICE, 26)",
                          "SetupDiEnumDeviceInterfaces(GUID_DEVINTERFACE_USB_DEVICE, 0)",
                          "SetupDiGetDeviceInterfaceDetailW(1024)",
                          "SetupDiEnumDeviceInterfaces(GUID_DEVINTERFACE_USB_DEVICE, 1, past the end)",
                          "SetupDiDestroyDeviceInfoList()"));
}

TEST_F(CameraSelection, FailedInterfaceEnumerationEndsTheSearch) {
  platform.SetPc({{{0, "A"}, {0, "B"}, {0, "C"}}, {}});
  platform.AnswersNth("SetupDiEnumDeviceInterfaces", 2, Fails());
  EXPECT_THAT(camera->QueryFixedUsbDeviceIds(), ElementsAre("A"));
}

TEST_F(CameraSelection, UnterminatedIdEndsAtTheBufferEnd) {
  platform.SetPc({{{0, std::string(300, 'A')}}, {}});
  EXPECT_THAT(camera->QueryFixedUsbDeviceIds(), ElementsAre(std::string(256, 'A')));
}

TEST_F(CameraSelection, BindingFailuresAreLogged) {
  EXPECT_EQ(camera->CameraCount(), 1U);
  struct Failure {
    const char* operation;
    scripted::Answer answer;
    int line;
    std::string text;
  };
  const std::vector<Failure> failures = {
      {"CoCreateInstance", SFalse(), 286, "fail to create enumlate instance, error:1"},
      {"ICreateDevEnum::CreateClassEnumerator", Fails(), 294, "Enumerate device fail, error: -2147467259"},
      {"IMoniker::BindToObject", Fails(), 308, "BindFilter fail. cameraIndex:0"},
      {"IMoniker::BindToObject", SFalse(), 308, "BindFilter fail. cameraIndex:0"},
  };
  for (const Failure& failure : failures) {
    platform.ClearJournal();
    platform.AnswersNth(failure.operation, 1, failure.answer);
    ComPtr<IBaseFilter> filter;
    EXPECT_FALSE(camera->BindDeviceFilter(0, filter.Put()));
    EXPECT_THAT(LogLines(), ElementsAre(ErrorLine(failure.line, "[CameraOperator]" + failure.text +
                                                                    "(CameraOperator::BindDeviceFilter)")));
  }
}

}  // namespace
