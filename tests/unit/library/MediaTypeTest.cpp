// Conversion of media types to sizes, subtypes and frame rates.
#include "MediaType.h"

#include <utility>
#include <vector>

#include "support/CameraOperatorTest.h"

namespace {

using scripted::Fails;
using scripted::kBuiltInDisplayName;
using scripted::kBuiltInId;
using scripted::MediaType;
using scripted::Mjpg;
using scripted::SFalse;
using scripted::Yuy2;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class MediaTypes : public support::CameraOperatorTest {
 protected:
  using Pairs = std::vector<std::pair<int, int>>;

  // Reads the capabilities of a PC whose camera has these pins.
  bool Read(std::vector<scripted::Pin> pins) {
    platform.SetPc({{{0, kBuiltInId}}, {{"built-in", kBuiltInDisplayName, std::move(pins)}}});
    EXPECT_EQ(camera->CameraCount(), 1U);
    platform.ClearJournal();
    return camera->GetCameraCapabilities(0, sizes, subTypes, fpsList);
  }
  bool Read(std::vector<MediaType> types) { return Read({{"capture", PINDIR_OUTPUT, std::move(types)}}); }

  Pairs Sizes() const {
    Pairs pairs;
    for (const tagSIZE& size : sizes) {
      pairs.emplace_back(size.cx, size.cy);
    }
    return pairs;
  }

  std::vector<tagSIZE> sizes;
  std::vector<GUID> subTypes;
  std::vector<unsigned int> fpsList;
};

TEST_F(MediaTypes, ConvertsIntervalsToRatesRoundedDown) {
  EXPECT_EQ(camera->AvgTimePerFrameToFps(333333), 30U);
  EXPECT_EQ(camera->AvgTimePerFrameToFps(333334), 29U);
  EXPECT_EQ(camera->AvgTimePerFrameToFps(333667), 29U);
  EXPECT_EQ(camera->AvgTimePerFrameToFps(400000), 25U);
  EXPECT_EQ(camera->AvgTimePerFrameToFps(666666), 15U);
  EXPECT_EQ(camera->AvgTimePerFrameToFps(10000001), 0U);
  EXPECT_EQ(camera->AvgTimePerFrameToFps(1), 10000000U);
  EXPECT_EQ(camera->AvgTimePerFrameToFps(-3), static_cast<unsigned int>(-3333334));
  EXPECT_EQ(camera->AvgTimePerFrameToFps(0), 30U) << "the default rate";
}

TEST_F(MediaTypes, ConvertsRatesToIntervalsRoundedDown) {
  EXPECT_EQ(camera->FpsToAvgTimePerFrame(30), 333333);
  EXPECT_EQ(camera->FpsToAvgTimePerFrame(15), 666666);
  EXPECT_EQ(camera->FpsToAvgTimePerFrame(25), 400000);
  EXPECT_EQ(camera->FpsToAvgTimePerFrame(60), 166666);
  EXPECT_EQ(camera->FpsToAvgTimePerFrame(7), 1428571);
  EXPECT_EQ(camera->FpsToAvgTimePerFrame(1), 10000000);
  EXPECT_EQ(camera->FpsToAvgTimePerFrame(0xFFFFFFFF), 0);
  EXPECT_EQ(camera->FpsToAvgTimePerFrame(0), 33) << "not the interval of the default rate";
}

TEST_F(MediaTypes, SizeInTwoSubtypesIsListedOnce) {
  EXPECT_TRUE(Read({Mjpg(640, 480, 30), Yuy2(640, 480, 30)}));
  EXPECT_EQ(Sizes(), (Pairs{{640, 480}}));
  EXPECT_EQ(subTypes.size(), 2U);
  EXPECT_THAT(fpsList, ElementsAre(30000U));
  EXPECT_EQ(CameraCapabilityMgrTestAccess::Size(CameraCapabilityMgr::GetInstance()), 2U);
}

TEST_F(MediaTypes, OtherFormatTypesAreIgnoredWithoutLogging) {
  MediaType other = Yuy2(640, 480, 30);
  other.formatType = FORMAT_VideoInfo2;
  EXPECT_TRUE(Read({other}));
  EXPECT_THAT(sizes, IsEmpty());
  EXPECT_THAT(subTypes, IsEmpty());
  EXPECT_THAT(fpsList, IsEmpty());
  EXPECT_THAT(platform.Logs(), IsEmpty());
  EXPECT_EQ(CameraCapabilityMgr::GetInstance().FindCapability(640, 480).fps, 0U);
}

TEST_F(MediaTypes, NegativeHeightsAreKept) {
  EXPECT_TRUE(Read({Yuy2(640, -480, 30)}));
  EXPECT_EQ(Sizes(), (Pairs{{640, -480}}));
}

TEST_F(MediaTypes, CapturePinAndStillPinAreRead) {
  EXPECT_TRUE(Read({{"capture", PINDIR_OUTPUT, {Yuy2(640, 480, 30)}},
                    {"still", PINDIR_OUTPUT, {Yuy2(1280, 960, 15)}},
                    {"control", PINDIR_INPUT, {Yuy2(320, 240, 5)}}}));
  EXPECT_EQ(Sizes(), (Pairs{{320, 240}, {640, 480}, {1280, 960}}));
  EXPECT_THAT(fpsList, ElementsAre(5000U, 15000U, 30000U));
}

TEST_F(MediaTypes, NullEntriesOfAPinListAreSkipped) {
  EXPECT_TRUE(camera->QueryCameraPinInfo({nullptr, nullptr}, subTypes, sizes, fpsList));
  EXPECT_THAT(platform.Journal(), IsEmpty());
}

TEST_F(MediaTypes, FreedTypeHasNoContents) {
  AM_MEDIA_TYPE type{};
  type.cbFormat = sizeof(VIDEOINFOHEADER);
  type.pbFormat = static_cast<BYTE*>(CoTaskMemAlloc(type.cbFormat));
  ComPtr<IMalloc> object;
  ASSERT_EQ(CoGetMalloc(1, object.Put()), S_OK);
  type.pUnk = object.Detach();
  FreeMediaTypeContents(type);
  EXPECT_EQ(type.cbFormat, 0U);
  EXPECT_EQ(type.pbFormat, nullptr);
  EXPECT_EQ(type.pUnk, nullptr);
  EXPECT_THAT(platform.Alive(), IsEmpty());
}

TEST_F(MediaTypes, InterfaceInATypeIsReleased) {
  MediaType type = Yuy2(640, 480, 30);
  type.hasUnknown = true;
  EXPECT_TRUE(Read({type}));
  EXPECT_THAT(platform.Alive(), IsEmpty());
}

TEST_F(MediaTypes, TableDescribesTheLastQueriedCamera) {
  EXPECT_TRUE(Read({Yuy2(640, 480, 30)}));
  EXPECT_TRUE(Read({Yuy2(320, 240, 15)}));
  EXPECT_EQ(CameraCapabilityMgr::GetInstance().FindCapability(640, 480).fps, 0U);
  EXPECT_EQ(CameraCapabilityMgr::GetInstance().FindCapability(320, 240).fps, 15U);
}

TEST_F(MediaTypes, ListsAreAppendedTo) {
  sizes.push_back({1, 1});
  fpsList.push_back(1);
  EXPECT_TRUE(Read({Yuy2(640, 480, 30)}));
  EXPECT_EQ(Sizes(), (Pairs{{1, 1}, {640, 480}}));
  EXPECT_THAT(fpsList, ElementsAre(1U, 30000U));
}

// --- Enumerations that break off ---

TEST_F(MediaTypes, FailedEnumerationEndsTheList) {
  EXPECT_EQ(camera->CameraCount(), 1U);
  for (const scripted::Answer answer : {Fails(), SFalse(), scripted::FailsWithOutput()}) {
    sizes.clear();
    platform.AnswersNth("IEnumMediaTypes::Next", 2, answer);
    EXPECT_TRUE(camera->GetCameraCapabilities(0, sizes, subTypes, fpsList));
    EXPECT_EQ(sizes.size(), 1U);
    sizes.clear();
    platform.AnswersNth("IEnumPins::Next", 1, answer);
    EXPECT_TRUE(camera->GetCameraCapabilities(0, sizes, subTypes, fpsList));
    EXPECT_THAT(sizes, IsEmpty());
  }
}

TEST_F(MediaTypes, FailureAtTheSecondPinKeepsTheTypesOfTheFirst) {
  platform.AnswersNth("IPin::QueryPinInfo", 2, Fails());
  EXPECT_FALSE(
      Read({{"capture", PINDIR_OUTPUT, {Yuy2(640, 480, 30)}}, {"still", PINDIR_OUTPUT, {Yuy2(1, 1, 1)}}}));
  EXPECT_EQ(Sizes(), (Pairs{{640, 480}}));
  EXPECT_EQ(CameraCapabilityMgr::GetInstance().FindCapability(640, 480).fps, 30U);
}

// --- Sorting by comparisons that are not strict weak orderings ---

TEST_F(MediaTypes, SizesAreSortedAndDistinct) {
  const std::vector<std::pair<Pairs, Pairs>> sorted = {
      {{{1280, 720}, {320, 240}, {640, 480}, {320, 240}, {1280, 720}, {-1, -1}},
       {{-1, -1}, {320, 240}, {640, 480}, {1280, 720}}},
      // Sizes that differ in one side.
      {{{640, 480}, {640, 360}, {480, 360}}, {{480, 360}, {640, 360}, {640, 480}}},
      // Each of these two comes before the other.
      {{{1280, 480}, {640, 720}}, {{640, 720}, {1280, 480}}},
      {{{640, 720}, {1280, 480}}, {{1280, 480}, {640, 720}}},
      {{{1280, 480}, {640, 720}, {1280, 480}}, {{640, 720}, {1280, 480}}},
  };
  for (const auto& [unsorted, expected] : sorted) {
    sizes.clear();
    for (const auto& [width, height] : unsorted) {
      sizes.push_back({width, height});
    }
    camera->SortAndUniqueCapabilities(sizes, subTypes, fpsList);
    EXPECT_EQ(Sizes(), expected);
  }
}

TEST_F(MediaTypes, SubtypeWithAnySmallerFieldComesFirst) {
  const GUID smallFirst{1, 9, 0, {}};
  const GUID smallSecond{9, 1, 0, {}};
  subTypes = {smallFirst, smallSecond};
  camera->SortAndUniqueCapabilities(sizes, subTypes, fpsList);
  EXPECT_TRUE(IsEqualGUID(subTypes[0], smallSecond));
  camera->SortAndUniqueCapabilities(sizes, subTypes, fpsList);
  EXPECT_TRUE(IsEqualGUID(subTypes[0], smallFirst));
}

TEST_F(MediaTypes, SubtypesThatDifferInOneFieldAreDistinct) {
  const GUID base{5, 5, 5, {5, 5, 5, 5, 5, 5, 5, 5}};
  std::vector<GUID> smaller(11, base);
  smaller[0].Data1 = 4;
  smaller[1].Data2 = 4;
  smaller[2].Data3 = 4;
  for (std::size_t i = 0; i < 8; ++i) {
    smaller[3 + i].Data4[i] = 4;
  }
  for (const GUID& subType : smaller) {
    subTypes = {base, subType, base};
    camera->SortAndUniqueCapabilities(sizes, subTypes, fpsList);
    ASSERT_EQ(subTypes.size(), 2U);
    EXPECT_TRUE(IsEqualGUID(subTypes[0], subType));
    EXPECT_TRUE(IsEqualGUID(subTypes[1], base));
  }
}

TEST_F(MediaTypes, RatesAreAscendingAndDistinct) {
  fpsList = {60000, 15000, 30000, 15000, 60000, 5000};
  fpsList.reserve(100);
  camera->SortAndUniqueCapabilities(sizes, subTypes, fpsList);
  EXPECT_THAT(fpsList, ElementsAre(5000U, 15000U, 30000U, 60000U));
  EXPECT_EQ(fpsList.capacity(), 4U);
}

TEST_F(MediaTypes, ListsOfSizesAndSubtypesShrink) {
  sizes.assign(50, {640, 480});
  subTypes.assign(50, MEDIASUBTYPE_YUY2);
  camera->SortAndUniqueCapabilities(sizes, subTypes, fpsList);
  EXPECT_EQ(sizes.capacity(), 1U);
  EXPECT_EQ(subTypes.capacity(), 1U);
}

TEST_F(MediaTypes, LongListsOfUnorderedSizesStayWithinBounds) {
  for (int i = 0; i < 1000; ++i) {
    sizes.push_back({i % 37, (1000 - i) % 41});
  }
  camera->SortAndUniqueCapabilities(sizes, subTypes, fpsList);
  EXPECT_LE(sizes.size(), 1000U);
  EXPECT_GE(sizes.size(), 41U);
}

}  // namespace
