// Every call of a capability query that can fail: result, remaining state and recovery.
// CapabilityQueryTest.cpp tests the allocations.
#include "support/CameraHandlerTest.h"

namespace {

using scripted::Answer;
using scripted::Fails;
using scripted::SFalse;
using scripted::SucceedsWithNull;
using support::CameraHandlerTest;
using ::testing::Contains;
using ::testing::IsEmpty;
using ::testing::StartsWith;

// Part of the query that fails, with the results of an earlier query that remain.
enum class Part {
  kEnumeration,  // all
  kSearch,       // none
  kBinding,      // all
  kReading,      // the camera without its formats
};

struct QueryCall {
  const char* name;
  const char* operation;
  unsigned nth;
  Part part;
  bool hasOutput;
};

// The first display name and the first USB device are those of the plug-in camera.
constexpr QueryCall kQueryCalls[] = {
    {"DeviceEnumerator", "CoCreateInstance", 1, Part::kEnumeration, true},
    {"ClassEnumerator", "ICreateDevEnum::CreateClassEnumerator", 1, Part::kEnumeration, true},
    {"Moniker", "IEnumMoniker::Next", 2, Part::kSearch, true},
    {"Allocator", "CoGetMalloc", 2, Part::kSearch, true},
    {"BindContext", "CreateBindCtx", 2, Part::kSearch, true},
    {"DisplayName", "IMoniker::GetDisplayName", 2, Part::kSearch, true},
    {"DeviceSet", "SetupDiGetClassDevsW", 1, Part::kSearch, false},
    {"DeviceInterface", "SetupDiEnumDeviceInterfaces", 2, Part::kSearch, false},
    {"InterfaceDetail", "SetupDiGetDeviceInterfaceDetailW", 2, Part::kSearch, false},
    {"DeviceInformation", "SetupDiEnumDeviceInfo", 2, Part::kSearch, true},
    {"DeviceStatus", "CM_Get_DevNode_Status", 2, Part::kSearch, true},
    {"ChildDevice", "CM_Get_Child", 1, Part::kSearch, true},
    {"ChildId", "CM_Get_Device_IDA", 1, Part::kSearch, false},
    {"SecondDeviceEnumerator", "CoCreateInstance", 2, Part::kBinding, true},
    {"SecondClassEnumerator", "ICreateDevEnum::CreateClassEnumerator", 2, Part::kBinding, true},
    {"SecondMoniker", "IEnumMoniker::Next", 5, Part::kBinding, true},
    {"Binding", "IMoniker::BindToObject", 1, Part::kBinding, true},
    {"Pins", "IBaseFilter::EnumPins", 1, Part::kBinding, true},
    {"PinInformation", "IPin::QueryPinInfo", 1, Part::kReading, false},
    {"MediaTypes", "IPin::EnumMediaTypes", 1, Part::kReading, true},
};

struct FailingQueryCall {
  QueryCall call;
  std::string name;
  Answer answer;
};

void PrintTo(const FailingQueryCall& failing, std::ostream* out) { *out << failing.name; }

std::vector<FailingQueryCall> FailingQueryCalls() {
  std::vector<FailingQueryCall> all;
  for (const QueryCall& call : kQueryCalls) {
    const std::string name = call.name;
    all.push_back({call, name + "Fails", Fails()});
    all.push_back({call, name + "ReturnsFalse", SFalse()});
    if (call.hasOutput) {
      all.push_back({call, name + "ReturnsNull", SucceedsWithNull()});
    }
  }
  return all;
}

class QueryFailure : public CameraHandlerTest, public ::testing::WithParamInterface<FailingQueryCall> {};

TEST_P(QueryFailure, LeavesTheDocumentedStateAndAllowsTheNextQuery) {
  const QueryCall& call = GetParam().call;
  QueryAndRelease();
  cameraNum = 77;
  platform.AnswersNth(call.operation, call.nth, GetParam().answer);
  EXPECT_EQ(Query(), NUVEQ_CAMERA_NOT_USABLE);
  // Either the lack of a camera is reported, or the camera's record is built and released.
  const bool isCameraFound = call.part >= Part::kBinding;
  EXPECT_EQ(cameraNum, isCameraFound ? 1U : 77U);
  EXPECT_THAT(platform.Journal(), Contains(StartsWith("action callback")).Times(isCameraFound ? 0 : 1));
  EXPECT_THAT(platform.Calls(), Contains("AllocateHostBlock(48)").Times(isCameraFound ? 1 : 0));
  EXPECT_THAT(platform.Alive(), IsEmpty());

  platform.ClearJournal();
  EXPECT_EQ(Open("0", 1280, 720), call.part == Part::kSearch ? NUVEQ_CAMERA_GRAPH_FAILED : NUVEQ_CAMERA_OK);
  if (call.part != Part::kSearch) {
    const std::string format = call.part == Part::kReading ? "MEDIASUBTYPE_YUY2" : "MEDIASUBTYPE_MJPG";
    EXPECT_THAT(platform.Calls(),
                Contains(StartsWith("IAMStreamConfig::SetFormat(built-in.capture, " + format)));
    ExpectFormatLeft();
  }
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  EXPECT_EQ(Query(), NUVEQ_CAMERA_OK);
}

INSTANTIATE_TEST_SUITE_P(Each, QueryFailure, ::testing::ValuesIn(FailingQueryCalls()),
                         [](const auto& tested) { return tested.param.name; });

}  // namespace
