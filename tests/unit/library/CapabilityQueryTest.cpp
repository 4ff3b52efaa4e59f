// GetCapability and ReleaseCapability: records, failures and ownership.
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

#include "Allocation.h"
#include "support/CameraHandlerTest.h"

namespace {

using support::CameraHandlerTest;

using CapabilityQuery = CameraHandlerTest;
using scripted::Fails;
using scripted::LaptopPc;
using scripted::MediaType;
using scripted::Mjpg;
using scripted::PlugInCamera;
using scripted::Yuy2;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

// The bytes of a value, with those between its fields.
template <typename T>
std::vector<unsigned char> Bytes(const T& value) {
  std::vector<unsigned char> bytes(sizeof(value));
  std::memcpy(bytes.data(), &value, sizeof(value));
  return bytes;
}

// The header asserts the layout. Bytes between the fields are zero.
TEST_F(CapabilityQuery, ReturnsOneZeroFilledRecord) {
  platform.SetPc(LaptopPc({Mjpg(1280, 720, 30), Yuy2(640, 480, 30), Yuy2(640, 480, 15)}));
  ASSERT_EQ(Query(), 0);
  EXPECT_EQ(cameraNum, 1U);

  NUVEQCameraCapabilities record;
  std::memset(&record, 0, sizeof(record));
  record.id = capabilities->id;
  record.idLen = 1;
  record.abilities = capabilities->abilities;
  record.abilityNum = 1;
  EXPECT_EQ(Bytes(*capabilities), Bytes(record));
  EXPECT_EQ(std::string(record.id, 64), "0" + std::string(63, '\0'));

  NUVEQCameraAbility ability;
  std::memset(&ability, 0, sizeof(ability));
  ability.fpsRanges = record.abilities->fpsRanges;
  ability.fpsRangeNum = 2;
  ability.resolutions = record.abilities->resolutions;
  ability.resolutionNum = 2;
  ability.abilityFlag = 1;
  EXPECT_EQ(Bytes(*record.abilities), Bytes(ability));

  const NUVEQFpsRange ranges[] = {{15000, 15000}, {30000, 30000}};
  EXPECT_EQ(std::memcmp(ability.fpsRanges, ranges, sizeof(ranges)), 0);
  const NUVEQResolution resolutions[] = {{640, 480}, {1280, 720}};
  EXPECT_EQ(std::memcmp(ability.resolutions, resolutions, sizeof(resolutions)), 0);
}

TEST_F(CapabilityQuery, CameraWithoutUsableTypeHasNullLists) {
  platform.SetPc(LaptopPc(std::vector<MediaType>{}));
  EXPECT_EQ(Query(), 0);
  const NUVEQCameraAbility& ability = *capabilities->abilities;
  EXPECT_EQ(ability.fpsRanges, nullptr);
  EXPECT_EQ(ability.fpsRangeNum, 0U);
  EXPECT_EQ(ability.resolutions, nullptr);
  EXPECT_EQ(ability.resolutionNum, 0U);
  EXPECT_EQ(ability.abilityFlag, 1U);
}

TEST_F(CapabilityQuery, NoBuiltInCameraIsReportedAndKeepsTheCount) {
  platform.SetPc({{}, {PlugInCamera()}});
  cameraNum = 77;
  for (const int refusal : {0, 55}) {
    host.SetActionResult(refusal);
    platform.ClearJournal();
    EXPECT_EQ(Query(), NUVEQ_CAMERA_NOT_USABLE);
    EXPECT_EQ(cameraNum, 77U);
    EXPECT_THAT(platform.Journal(), Contains("action callback null 1 type 7 \"440\"").Times(1));
  }
}

TEST_F(CapabilityQuery, ActionIsReportedBetweenTwoLogLines) {
  platform.SetPc({{}, {PlugInCamera()}});
  EXPECT_EQ(Query(), NUVEQ_CAMERA_NOT_USABLE);
  const std::vector<std::string> journal = platform.Journal();
  const std::vector<std::string> end(journal.end() - 3, journal.end());
  EXPECT_THAT(end,
              ElementsAre(StartsWith("log: "), "action callback null 1 type 7 \"440\"", StartsWith("log: ")));
}

TEST_F(CapabilityQuery, NullArgumentsAreRefused) {
  NUVEQCameraCapabilities* records = nullptr;
  std::uint32_t count = 0;
  EXPECT_EQ(handler.GetCapability(nullptr, &count), -2);
  EXPECT_EQ(handler.GetCapability(&records, nullptr), -2);
  EXPECT_EQ(handler.GetCapability(nullptr, nullptr), -2);
  EXPECT_THAT(platform.Calls(), ElementsAre("CoInitialize()"));
}

TEST_F(CapabilityQuery, RecordOfUnreadableCameraIsBuiltAndReleased) {
  platform.Answers("IPin::QueryPinInfo", Fails());
  NUVEQCameraCapabilities* records = nullptr;
  EXPECT_EQ(handler.GetCapability(&records, &cameraNum), -1000);
  EXPECT_EQ(cameraNum, 1U);
  EXPECT_NE(records, nullptr) << "it points at what was released";
  EXPECT_THAT(platform.Calls(), Contains("AllocateHostBlock(48)"));
  EXPECT_THAT(platform.Alive(), IsEmpty());
}

struct AllocationFailure {
  const char* block;
  unsigned number;
  int result;
};

void PrintTo(const AllocationFailure& failure, std::ostream* out) { *out << failure.block; }

class CapabilityAllocation : public CameraHandlerTest,
                             public ::testing::WithParamInterface<AllocationFailure> {};

TEST_P(CapabilityAllocation, FailureReturnsItsCodeAndReleasesOnlyItsRecord) {
  ASSERT_EQ(Query(), 0);
  NUVEQCameraCapabilities* records = capabilities;
  cameraNum = 77;
  const unsigned before = platform.CallCount("AllocateHostBlock");
  platform.AnswersNth("AllocateHostBlock", GetParam().number, Fails());
  EXPECT_EQ(handler.GetCapability(&records, &cameraNum), GetParam().result);
  EXPECT_EQ(cameraNum, 1U);
  EXPECT_EQ(platform.CallCount("AllocateHostBlock"), before + GetParam().number)
      << "the first failure ends it";
  EXPECT_EQ(records == nullptr, GetParam().number == 1);
  // The records of the earlier query still belong to the host.
  EXPECT_STREQ(capabilities->id, "0");
  ReleaseCapabilities();
  EXPECT_THAT(platform.Alive(), IsEmpty());
  EXPECT_EQ(Query(), 0) << "the next query works";
}

INSTANTIATE_TEST_SUITE_P(Each, CapabilityAllocation,
                         ::testing::Values(AllocationFailure{"Record", 1, -3}, AllocationFailure{"Id", 2, -3},
                                           AllocationFailure{"Ability", 3, -3},
                                           AllocationFailure{"Rates", 4, -1000},
                                           AllocationFailure{"Sizes", 5, -3}),
                         [](const auto& tested) { return std::string(tested.param.block); });

TEST_F(CapabilityQuery, FailureBeforeTheFirstRecordKeepsTheHostsPointer) {
  ASSERT_EQ(Query(), 0);
  NUVEQCameraCapabilities* records = capabilities;
  EXPECT_EQ(handler.GetCapability(&records, nullptr), -2);
  EXPECT_EQ(records, capabilities);
  platform.SetPc({{}, {PlugInCamera()}});
  EXPECT_EQ(handler.GetCapability(&records, &cameraNum), -1000);
  EXPECT_EQ(records, capabilities);
  EXPECT_STREQ(capabilities->id, "0");
}

TEST_F(CapabilityQuery, AllocationFailureOverridesReadFailure) {
  platform.Answers("IPin::QueryPinInfo", Fails());
  platform.AnswersNth("AllocateHostBlock", 1, Fails());
  NUVEQCameraCapabilities* records = nullptr;
  EXPECT_EQ(handler.GetCapability(&records, &cameraNum), -3);
}

TEST_F(CapabilityQuery, SizeWithTwoSubtypesIsOpenedInTheFasterOne) {
  platform.SetPc(
      LaptopPc({Mjpg(640, 480, 30), Yuy2(640, 480, 30), Mjpg(1280, 720, 30), Yuy2(1280, 720, 15)}));
  QueryAndRelease();
  ExpectFormatLeft(2);
  EXPECT_EQ(Open("0", 640, 480), 0);
  EXPECT_EQ(platform.LastEncodeParam().colorSpace, ColorSpace::kYuy2);
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  EXPECT_EQ(Open("0", 1280, 720), 0);
  EXPECT_EQ(platform.LastEncodeParam().colorSpace, ColorSpace::kArgb32);
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
}

TEST_F(CapabilityQuery, QueryKeepsTheCameraOpen) {
  QueryAndOpen();
  EXPECT_EQ(Query(), 0);
  DeliverAndReceive(1);
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
}

TEST_F(CapabilityQuery, RecordsCanBeReleasedAfterLaterQueries) {
  EXPECT_EQ(Query(), 0);
  NUVEQCameraCapabilities* const first = capabilities;
  EXPECT_EQ(Query(), 0);
  handler.ReleaseCapability(99, first, 1);
  EXPECT_STREQ(capabilities->id, "0");
}

// Allocates a block that ReleaseCapability may free.
template <typename T>
T* Block(scripted::Platform& platform, std::size_t count) {
  T* const block = static_cast<T*>(std::calloc(count, sizeof(T)));
  platform.Track(block, "block of the test's", [] {});
  return block;
}

TEST_F(CapabilityQuery, ReleasesEveryRecordAndItsBlocks) {
  auto* const records = Block<NUVEQCameraCapabilities>(platform, 3);
  records[1].id = Block<char>(platform, 64);
  records[1].abilityNum = 1;  // without abilities
  records[2].id = Block<char>(platform, 64);
  records[2].abilities = Block<NUVEQCameraAbility>(platform, 1);
  records[2].abilityNum = 1;
  records[2].abilities->fpsRanges = Block<NUVEQFpsRange>(platform, 1);
  records[2].abilities->resolutions = Block<NUVEQResolution>(platform, 1);
  EXPECT_EQ(platform.Alive().size(), 6U);
  handler.ReleaseCapability(0, records, 3);
  EXPECT_THAT(platform.Alive(), IsEmpty());
}

TEST_F(CapabilityQuery, ReleasesOnlyTheGivenNumberOfRecords) {
  auto* const records = Block<NUVEQCameraCapabilities>(platform, 2);
  records[0].id = Block<char>(platform, 64);
  char* const kept = Block<char>(platform, 64);
  records[1].id = kept;
  handler.ReleaseCapability(0, records, 1);
  EXPECT_EQ(platform.Alive().size(), 1U);
  platform::FreeHostBlock(kept);
}

TEST_F(CapabilityQuery, ReleasedPointersAreCleared) {
  ASSERT_EQ(Query(), 0);
  NUVEQCameraCapabilities* const records = std::exchange(capabilities, nullptr);
  NUVEQCameraCapabilities lastRecord = *records;
  NUVEQCameraAbility lastAbility = *records->abilities;
  // Runs before each block is freed: lists first, then the ability, then the record.
  platform.Before("FreeHostBlock", [&] {
    lastRecord = *records;
    lastAbility = records->abilities != nullptr ? *records->abilities : lastAbility;
  });
  handler.ReleaseCapability(0, records, 1);
  EXPECT_EQ(lastAbility.fpsRanges, nullptr);
  EXPECT_EQ(lastAbility.resolutions, nullptr);
  EXPECT_EQ(lastRecord.id, nullptr);
  EXPECT_EQ(lastRecord.abilities, nullptr);
}

}  // namespace
