// Conversion of media types to sizes, subtypes and frame rates.
#include "MediaType.h"

#include "MediaTypeTest.h"

namespace {

using scripted::MediaType;
using scripted::Mjpg;
using scripted::Yuy2;
using support::ErrorLine;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST_F(MediaTypes, ConvertsIntervalsToRatesRoundedDown) {
  EXPECT_EQ(camera->AvgTimePerFrameToFps(333333), 30U);
  EXPECT_EQ(camera->AvgTimePerFrameToFps(333334), 29U);
  EXPECT_EQ(camera->AvgTimePerFrameToFps(333667), 29U);
  EXPECT_EQ(camera->AvgTimePerFrameToFps(400000), 25U);
  EXPECT_EQ(camera->AvgTimePerFrameToFps(666666), 15U);
  EXPECT_EQ(camera->AvgTimePerFrameToFps(10000001), 0U);
  EXPECT_EQ(camera->AvgTimePerFrameToFps(1), 10000000U);
  EXPECT_EQ(camera->AvgTimePerFrameToFps(-3), static_cast<unsigned int>(-3333334));
  EXPECT_THAT(LogLines(), IsEmpty());
}

TEST_F(MediaTypes, ConvertsIntervalZeroToThirtyFrames) {
  EXPECT_EQ(camera->AvgTimePerFrameToFps(0), 30U);
  EXPECT_THAT(LogLines(), ElementsAre(ErrorLine(434,
                                                "[CameraOperator]avgTimePerFrame is 0."
                                                "(CameraOperator::AvgTimePerFrameToFps)")));
}

TEST_F(MediaTypes, ConvertsRatesToIntervalsRoundedDown) {
  EXPECT_EQ(camera->FpsToAvgTimePerFrame(30), 333333);
  EXPECT_EQ(camera->FpsToAvgTimePerFrame(15), 666666);
  EXPECT_EQ(camera->FpsToAvgTimePerFrame(25), 400000);
  EXPECT_EQ(camera->FpsToAvgTimePerFrame(60), 166666);
  EXPECT_EQ(camera->FpsToAvgTimePerFrame(7), 1428571);
  EXPECT_EQ(camera->FpsToAvgTimePerFrame(1), 10000000);
  EXPECT_EQ(camera->FpsToAvgTimePerFrame(0xFFFFFFFF), 0);
  EXPECT_THAT(LogLines(), IsEmpty());
}

TEST_F(MediaTypes, ConvertsRateZeroToInterval33) {
  EXPECT_EQ(camera->FpsToAvgTimePerFrame(0), 33);
  EXPECT_THAT(LogLines(),
              ElementsAre(ErrorLine(445, "[CameraOperator]fps is 0.(CameraOperator::FpsToAvgTimePerFrame)")));
}

TEST_F(MediaTypes, SizeInTwoSubtypesIsListedOnce) {
  EXPECT_TRUE(Read({Mjpg(640, 480, 30), Yuy2(640, 480, 30)}));
  EXPECT_EQ(Sizes(), (Pairs{{640, 480}}));
  EXPECT_EQ(subTypes.size(), 2U);
  EXPECT_THAT(fpsList, ElementsAre(30000U));
  EXPECT_EQ(CameraCapabilityMgrTestAccess::Size(CameraCapabilityMgr::GetInstance()), 2U);
  // Both entries exist: adding either again is refused.
  platform.ClearJournal();
  CameraCapabilityMgr::GetInstance().Add(640, 480, 30, MEDIASUBTYPE_MJPG);
  CameraCapabilityMgr::GetInstance().Add(640, 480, 30, MEDIASUBTYPE_YUY2);
  EXPECT_EQ(platform.Logs().size(), 2U);
}

TEST_F(MediaTypes, AcceptedTypesAreLogged) {
  EXPECT_TRUE(Read({Mjpg(1280, 720, 30), Yuy2(640, 480, 15)}));
  EXPECT_THAT(LogLines(),
              ElementsAre(ErrorLine(427,
                                    "[CameraOperator]ParseMediaType success, width: 1280, height:720,fps:30,"
                                    "subType:1196444237(CameraOperator::ParseMediaType)"),
                          ErrorLine(427,
                                    "[CameraOperator]ParseMediaType success, width: 640, height:480,fps:15,"
                                    "subType:844715353(CameraOperator::ParseMediaType)")));
}

TEST_F(MediaTypes, OtherFormatTypesAreIgnoredWithoutLogging) {
  MediaType other = Yuy2(640, 480, 30);
  other.formatType = FORMAT_VideoInfo2;
  EXPECT_TRUE(Read({other}));
  EXPECT_THAT(sizes, IsEmpty());
  EXPECT_THAT(subTypes, IsEmpty());
  EXPECT_THAT(fpsList, IsEmpty());
  EXPECT_THAT(LogLines(), IsEmpty());
  EXPECT_EQ(CameraCapabilityMgr::GetInstance().FindCapability(640, 480).fps, 0U);
}

TEST_F(MediaTypes, ShortAndMissingFormatBlocksAreIgnored) {
  MediaType shortFormat = Yuy2(640, 480, 30);
  shortFormat.formatSize = 87;
  MediaType noFormat = Yuy2(640, 480, 30);
  noFormat.hasFormat = false;
  MediaType empty = Yuy2(640, 480, 30);
  empty.formatSize = 0;
  empty.hasFormat = false;
  EXPECT_TRUE(Read({shortFormat, noFormat, empty}));
  EXPECT_THAT(sizes, IsEmpty());
  EXPECT_THAT(subTypes, IsEmpty());
  EXPECT_THAT(fpsList, IsEmpty());
  EXPECT_EQ(CameraCapabilityMgrTestAccess::Size(CameraCapabilityMgr::GetInstance()), 0U);
  EXPECT_THAT(LogLines(), IsEmpty());
}

TEST_F(MediaTypes, LongerFormatBlocksAreAccepted) {
  MediaType longFormat = Yuy2(640, 480, 30);
  longFormat.formatSize = 5000;
  EXPECT_TRUE(Read({longFormat}));
  EXPECT_EQ(Sizes(), (Pairs{{640, 480}}));
}

TEST_F(MediaTypes, IntervalAboveAWholeRateIsRoundedDown) {
  MediaType slow = Yuy2(640, 480, 30);
  slow.interval = 333334;
  EXPECT_TRUE(Read({slow}));
  EXPECT_THAT(fpsList, ElementsAre(29000U));
  EXPECT_EQ(CameraCapabilityMgr::GetInstance().FindCapability(640, 480).fps, 29U);
}

TEST_F(MediaTypes, NegativeHeightsAreKept) {
  EXPECT_TRUE(Read({Yuy2(640, -480, 30)}));
  EXPECT_EQ(Sizes(), (Pairs{{640, -480}}));
  EXPECT_THAT(LogLines(), ElementsAre(ErrorLine(427,
                                                "[CameraOperator]ParseMediaType success, width: 640, "
                                                "height:-480,fps:30,subType:844715353"
                                                "(CameraOperator::ParseMediaType)")));
}

TEST_F(MediaTypes, CapturePinAndStillPinAreRead) {
  EXPECT_TRUE(Read({{"capture", PINDIR_OUTPUT, {Yuy2(640, 480, 30)}},
                    {"still", PINDIR_OUTPUT, {Yuy2(1280, 960, 15)}},
                    {"control", PINDIR_INPUT, {Yuy2(320, 240, 5)}}}));
  EXPECT_EQ(Sizes(), (Pairs{{320, 240}, {640, 480}, {1280, 960}}));
  EXPECT_THAT(fpsList, ElementsAre(5000U, 15000U, 30000U));
}

TEST_F(MediaTypes, CameraWithoutUsableTypeSucceeds) {
  EXPECT_TRUE(Read(std::vector<MediaType>{}));
  EXPECT_THAT(sizes, IsEmpty());
  EXPECT_THAT(subTypes, IsEmpty());
  EXPECT_THAT(fpsList, IsEmpty());
}

TEST_F(MediaTypes, NullTypesAndNullPinsAreSkipped) {
  MediaType null;
  null.isNull = true;
  scripted::Pin nullPin;
  nullPin.isNull = true;
  EXPECT_TRUE(Read({nullPin, {"capture", PINDIR_OUTPUT, {null, Yuy2(640, 480, 30)}}}));
  EXPECT_EQ(Sizes(), (Pairs{{640, 480}}));
  EXPECT_THAT(LogLines(), Contains(ErrorLine(391,
                                             "[CameraOperator]mediaType is nullptr."
                                             "(CameraOperator::QueryCameraPinInfo)")));
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

// --- Sorting by comparisons that are not strict weak orderings ---

TEST_F(MediaTypes, MutuallySmallerSizesAreSwapped) {
  sizes = {{1280, 480}, {640, 720}};
  camera->SortAndUniqueCapabilities(sizes, subTypes, fpsList);
  EXPECT_EQ(Sizes(), (Pairs{{640, 720}, {1280, 480}}));
  camera->SortAndUniqueCapabilities(sizes, subTypes, fpsList);
  EXPECT_EQ(Sizes(), (Pairs{{1280, 480}, {640, 720}}));
}

TEST_F(MediaTypes, SizesThatDifferInOneSideAreDistinct) {
  sizes = {{640, 480}, {640, 360}, {480, 360}};
  camera->SortAndUniqueCapabilities(sizes, subTypes, fpsList);
  EXPECT_EQ(Sizes(), (Pairs{{480, 360}, {640, 360}, {640, 480}}));
}

TEST_F(MediaTypes, OrderedSizesAreSortedAndDistinct) {
  sizes = {{1280, 720}, {320, 240}, {640, 480}, {320, 240}, {1280, 720}, {-1, -1}};
  camera->SortAndUniqueCapabilities(sizes, subTypes, fpsList);
  EXPECT_EQ(Sizes(), (Pairs{{-1, -1}, {320, 240}, {640, 480}, {1280, 720}}));
}

TEST_F(MediaTypes, EqualSizesSeparatedByAnUnorderedSizeAreMerged) {
  sizes = {{1280, 480}, {640, 720}, {1280, 480}};
  camera->SortAndUniqueCapabilities(sizes, subTypes, fpsList);
  EXPECT_EQ(Sizes(), (Pairs{{640, 720}, {1280, 480}}));
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
