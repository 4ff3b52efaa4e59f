// What a camera offers and what it is set to.
#include <array>
#include <cstring>
#include <limits>

#include "LinuxTest.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr std::uint32_t kYuyv = V4L2_PIX_FMT_YUYV;

class Format : public LinuxTest {
 protected:
  FakeVideoDevice& AddCamera(std::vector<FormatOffer> formats) {
    VideoDeviceSettings settings;
    settings.formats = std::move(formats);
    return AddCamera(std::move(settings));
  }
  FakeVideoDevice& AddCamera(VideoDeviceSettings settings = {}) {
    FakeVideoDevice& device = AddLaptopCamera(std::move(settings));
    filter = FirstCamera();
    pin = FindPin(*filter.Get(), PINDIR_OUTPUT);
    return device;
  }
  std::vector<std::string> Offered() const {
    std::vector<MediaType> types;
    EXPECT_EQ(ListMediaTypes(*pin.Get(), types), S_OK);
    std::vector<std::string> descriptions;
    for (const MediaType& type : types) {
      descriptions.push_back(Describe(type));
    }
    return descriptions;
  }
  HRESULT Change(const GUID& subtype, LONG width, LONG height, LONGLONG interval) const {
    return ChangeFormat(*pin.Get(), subtype, width, height, interval);
  }
  // The results of the three calls that meet the device.
  std::array<HRESULT, 3> Results() const {
    std::vector<MediaType> types;
    MediaType current;
    const HRESULT listed = ListMediaTypes(*pin.Get(), types);
    const HRESULT got = CurrentFormat(*pin.Get(), current);
    return {listed, got, SetWhole(MEDIASUBTYPE_YUY2, 64, 48, 333333)};
  }
  // Sets a type made by hand, for which GetFormat need not work.
  HRESULT SetWhole(const GUID& subtype, LONG width, LONG height, LONGLONG interval) const {
    VIDEOINFOHEADER video{};
    video.AvgTimePerFrame = interval;
    video.bmiHeader.biSize = sizeof(video.bmiHeader);
    video.bmiHeader.biWidth = width;
    video.bmiHeader.biHeight = height;
    AM_MEDIA_TYPE type = VideoType(subtype, video);
    return StreamConfig(*pin.Get())->SetFormat(&type);
  }
  static AM_MEDIA_TYPE VideoType(const GUID& subtype, VIDEOINFOHEADER& video) {
    AM_MEDIA_TYPE type{};
    type.majortype = MEDIATYPE_Video;
    type.subtype = subtype;
    type.formattype = FORMAT_VideoInfo;
    type.cbFormat = sizeof(video);
    type.pbFormat = reinterpret_cast<BYTE*>(&video);
    return type;
  }

  ComPtr<IBaseFilter> filter;
  ComPtr<IPin> pin;

  void TearDown() override {
    pin.Reset();
    filter.Reset();
    LinuxTest::TearDown();
  }
};

using OfferedFormats = Format;
using SetFormat = Format;

// --- What is offered ---

TEST_F(OfferedFormats, AreAllSizesAndRatesInTheDevicesOrder) {
  AddCamera({{kYuyv, {Discrete(640, 480, {30, 15}), Discrete(320, 240, {30})}},
             {V4L2_PIX_FMT_MJPEG, {Discrete(1280, 720, {60})}}});
  EXPECT_THAT(Offered(), ElementsAre("YUY2 640x480 333333", "YUY2 640x480 666666", "YUY2 320x240 333333",
                                     "MJPG 1280x720 166666"));
}

TEST_F(OfferedFormats, AreTheSameEveryTimeAndForEveryEnumerator) {
  AddCamera();
  const std::vector<std::string> first = Offered();
  EXPECT_THAT(first, SizeIs(6));
  EXPECT_EQ(Offered(), first);
}

TEST_F(OfferedFormats, OfUncompressedPicturesAreDescribedInFull) {
  AddCamera({{kYuyv, {Discrete(640, 480, {30})}}});
  std::vector<MediaType> types;
  ASSERT_EQ(ListMediaTypes(*pin.Get(), types), S_OK);
  ASSERT_THAT(types, SizeIs(1));
  const AM_MEDIA_TYPE& type = *types.front();
  EXPECT_TRUE(type.majortype == MEDIATYPE_Video);
  EXPECT_TRUE(type.subtype == MEDIASUBTYPE_YUY2);
  EXPECT_TRUE(type.formattype == FORMAT_VideoInfo);
  EXPECT_EQ(type.bFixedSizeSamples, TRUE);
  EXPECT_EQ(type.bTemporalCompression, FALSE);
  EXPECT_EQ(type.lSampleSize, 640U * 480 * 2);
  EXPECT_EQ(type.pUnk, nullptr);
  ASSERT_EQ(type.cbFormat, 88U);
  const BITMAPINFOHEADER& header = Video(types.front()).bmiHeader;
  EXPECT_EQ(header.biSize, 40U);
  EXPECT_EQ(header.biPlanes, 1);
  EXPECT_EQ(header.biBitCount, 16);
  EXPECT_EQ(header.biCompression, MEDIASUBTYPE_YUY2.Data1);
  EXPECT_EQ(header.biSizeImage, 640U * 480 * 2);
}

TEST_F(OfferedFormats, OfCompressedPicturesAreDescribedInFull) {
  AddCamera({{V4L2_PIX_FMT_MJPEG, {Discrete(640, 480, {30})}}});
  std::vector<MediaType> types;
  ASSERT_EQ(ListMediaTypes(*pin.Get(), types), S_OK);
  ASSERT_THAT(types, SizeIs(1));
  EXPECT_TRUE(types.front()->subtype == MEDIASUBTYPE_MJPG);
  EXPECT_TRUE(types.front()->formattype == FORMAT_VideoInfo);
  EXPECT_EQ(types.front()->bFixedSizeSamples, FALSE);
  ASSERT_EQ(types.front()->cbFormat, 88U);
  EXPECT_EQ(Video(types.front()).bmiHeader.biCompression, MEDIASUBTYPE_MJPG.Data1);
}

TEST_F(OfferedFormats, OfOtherLayoutsAreNamedByTheirCode) {
  AddCamera({{V4L2_PIX_FMT_NV12, {Discrete(64, 48, {30})}}, {V4L2_PIX_FMT_H264, {Discrete(64, 48, {30})}}});
  std::vector<MediaType> types;
  ASSERT_EQ(ListMediaTypes(*pin.Get(), types), S_OK);
  ASSERT_THAT(types, SizeIs(2));
  EXPECT_TRUE(types[0]->subtype == MEDIASUBTYPE_NV12);
  EXPECT_TRUE(types[1]->subtype == FourCcSubtype(0x34363248));
}

TEST_F(OfferedFormats, HaveIntervalsRoundedDown) {
  SizeOffer size = Discrete(64, 48, {30, 60, 7});
  size.intervals.values.push_back({1001, 30000});
  size.intervals.values.push_back({2, 15});
  AddCamera({{kYuyv, {size}}});
  EXPECT_THAT(Offered(), ElementsAre("YUY2 64x48 333333", "YUY2 64x48 166666", "YUY2 64x48 1428571",
                                     "YUY2 64x48 333666", "YUY2 64x48 1333333"));
}

TEST_F(OfferedFormats, OfAnyIntervalInARangeIncludeItsEnds) {
  for (const std::uint32_t type : {V4L2_FRMIVAL_TYPE_STEPWISE, V4L2_FRMIVAL_TYPE_CONTINUOUS}) {
    SizeOffer size = Discrete(64, 48, {});
    size.intervals = {type, {{1, 60}, {1, 5}, {1, 60}}};
    AddCamera({{kYuyv, {size}}});
    EXPECT_THAT(Offered(), ::testing::IsSupersetOf({"YUY2 64x48 166666", "YUY2 64x48 2000000"}));
    EXPECT_LE(Offered().size(), 100U);
    UnplugLaptopCamera();
  }
}

TEST_F(OfferedFormats, OfAnySizeInARangeAreTheUsualOnesInIt) {
  for (const std::uint32_t type : {V4L2_FRMSIZE_TYPE_STEPWISE, V4L2_FRMSIZE_TYPE_CONTINUOUS}) {
    SizeOffer size = Discrete(16, 16, {30});
    size.type = type;
    size.size = {16, 1920, type == V4L2_FRMSIZE_TYPE_STEPWISE ? 16U : 1U,
                 16, 1080, type == V4L2_FRMSIZE_TYPE_STEPWISE ? 8U : 1U};
    AddCamera({{kYuyv, {size}}});
    EXPECT_THAT(Offered(), ::testing::IsSupersetOf(
                               {"YUY2 640x480 333333", "YUY2 1280x720 333333", "YUY2 1920x1080 333333"}));
    EXPECT_LE(Offered().size(), 100U);
    for (const std::string& offer : Offered()) {
      LONG width = 0;
      LONG height = 0;
      ASSERT_EQ(std::sscanf(offer.c_str(), "YUY2 %dx%d", &width, &height), 2);
      EXPECT_EQ(SetWhole(MEDIASUBTYPE_YUY2, width, height, 333333), S_OK) << offer;
    }
    UnplugLaptopCamera();
  }
}

TEST_F(OfferedFormats, OfARangeWithoutAUsualSizeAreNotNone) {
  SizeOffer size = Discrete(100, 50, {30});
  size.type = V4L2_FRMSIZE_TYPE_STEPWISE;
  size.size = {100, 108, 4, 50, 58, 4};
  AddCamera({{kYuyv, {size}}});
  EXPECT_THAT(Offered(), ::testing::Not(IsEmpty()));
  EXPECT_EQ(DescribeCurrentFormat(*pin.Get()), Offered().front());
}

TEST_F(OfferedFormats, AreNoneOfADeviceThatOffersNothing) {
  AddCamera();
  kernel.Fail(VIDIOC_ENUM_FMT, EINVAL);
  EXPECT_THAT(Offered(), IsEmpty());
}

TEST_F(OfferedFormats, WithIntervalsThatAreNoneDoNotDivideByThem) {
  SizeOffer size = Discrete(64, 48, {30});
  size.intervals.values.push_back({1, 0});
  size.intervals.values.push_back({0, 30});
  size.intervals.values.push_back({0, 0});
  AddCamera({{kYuyv, {size}}});
  EXPECT_THAT(Offered(), ::testing::Contains("YUY2 64x48 333333"));
}

// --- What is set ---

TEST_F(SetFormat, BeforeItTheFirstOfferIsTheCurrentFormat) {
  AddCamera();
  EXPECT_EQ(DescribeCurrentFormat(*pin.Get()), "YUY2 64x48 333333");
}

TEST_F(SetFormat, SetsTheDeviceAndIsTheCurrentFormatFromThenOn) {
  FakeVideoDevice& device = AddCamera();
  EXPECT_EQ(Change(MEDIASUBTYPE_MJPG, 128, 96, 166666), S_OK);
  EXPECT_EQ(DescribeCurrentFormat(*pin.Get()), "MJPG 128x96 166666");
  EXPECT_EQ(Change(MEDIASUBTYPE_YUY2, 64, 48, 666666), S_OK);
  EXPECT_EQ(DescribeCurrentFormat(*pin.Get()), "YUY2 64x48 666666");
  EXPECT_EQ(device.Format().pixelformat, kYuyv);
  EXPECT_EQ(device.Format().width, 64U);
  EXPECT_EQ(device.Format().height, 48U);
  EXPECT_EQ(device.Interval().numerator, 1U);
  EXPECT_EQ(device.Interval().denominator, 15U);
}

TEST_F(SetFormat, CurrentFormatIsDescribedInFullThoughOnlyPartsOfItWereChanged) {
  AddCamera();
  ASSERT_EQ(Change(MEDIASUBTYPE_MJPG, 128, 96, 333333), S_OK);
  ASSERT_EQ(Change(MEDIASUBTYPE_YUY2, 32, 24, 333333), S_OK);
  MediaType type;
  ASSERT_EQ(CurrentFormat(*pin.Get(), type), S_OK);
  EXPECT_EQ(Video(type).bmiHeader.biSizeImage, 32U * 24 * 2);
  EXPECT_EQ(Video(type).bmiHeader.biCompression, MEDIASUBTYPE_YUY2.Data1);
  EXPECT_EQ(Video(type).bmiHeader.biBitCount, 16);
  EXPECT_EQ(type->lSampleSize, 32U * 24 * 2);
}

TEST_F(SetFormat, EveryOfferCanBeSet) {
  AddCamera();
  std::vector<MediaType> types;
  ASSERT_EQ(ListMediaTypes(*pin.Get(), types), S_OK);
  for (const MediaType& type : types) {
    EXPECT_EQ(StreamConfig(*pin.Get())->SetFormat(type.get()), S_OK) << Describe(type);
    EXPECT_EQ(DescribeCurrentFormat(*pin.Get()), Describe(type));
  }
}

TEST_F(SetFormat, AcceptsTheOfferedIntervalAsTheLibraryComputesItFromARate) {
  SizeOffer size = Discrete(64, 48, {});
  size.intervals.values = {{1001, 30000}, {1, 15}};
  FakeVideoDevice& device = AddCamera({{kYuyv, {size}}});
  // 29.97 frames per second are 29 whole ones, 344827 units.
  EXPECT_EQ(Change(MEDIASUBTYPE_YUY2, 64, 48, 344827), S_OK);
  EXPECT_EQ(device.Interval().denominator, 30000U);
  EXPECT_EQ(DescribeCurrentFormat(*pin.Get()), "YUY2 64x48 333666");
}

TEST_F(SetFormat, RefusesWhatTheDeviceReplacesByAnotherSizeOrLayout) {
  AddCamera();
  EXPECT_EQ(Change(MEDIASUBTYPE_YUY2, 640, 480, 333333), kInvalidMediaType);
  EXPECT_EQ(Change(MEDIASUBTYPE_NV12, 64, 48, 333333), kInvalidMediaType);
  EXPECT_EQ(Change(MEDIASUBTYPE_ARGB32, 64, 48, 333333), kInvalidMediaType);
}

TEST_F(SetFormat, RefusesAnOfferThatTheDriverDoesNotKeep) {
  FakeVideoDevice& device = AddCamera();
  device.SetSettings([](VideoDeviceSettings& settings) {
    settings.substituteFormat = [](v4l2_pix_format& format) { format.width = 32; };
  });
  EXPECT_EQ(Change(MEDIASUBTYPE_YUY2, 64, 48, 333333), kInvalidMediaType);
  device.SetSettings([](VideoDeviceSettings& settings) {
    settings.substituteFormat = [](v4l2_pix_format& format) { format.pixelformat = V4L2_PIX_FMT_MJPEG; };
  });
  EXPECT_EQ(Change(MEDIASUBTYPE_YUY2, 64, 48, 333333), kInvalidMediaType);
}

TEST_F(SetFormat, AcceptsAnotherRateAndSaysWhichItIs) {
  FakeVideoDevice& device = AddCamera();
  EXPECT_EQ(Change(MEDIASUBTYPE_YUY2, 64, 48, 1'000'000), S_OK);
  EXPECT_EQ(DescribeCurrentFormat(*pin.Get()), "YUY2 64x48 666666");
  device.SetSettings([](VideoDeviceSettings& settings) {
    settings.substituteInterval = [](v4l2_fract& interval) { interval = {1, 12}; };
  });
  EXPECT_EQ(Change(MEDIASUBTYPE_YUY2, 64, 48, 333333), S_OK);
  EXPECT_EQ(DescribeCurrentFormat(*pin.Get()), "YUY2 64x48 833333");
}

TEST_F(SetFormat, AcceptsIntervalsThatAreNone) {
  AddCamera();
  // 33 is what a request for no frames per second comes to.
  for (const LONGLONG interval :
       {0LL, 33LL, -1LL, std::numeric_limits<LONGLONG>::max(), std::numeric_limits<LONGLONG>::min()}) {
    EXPECT_EQ(Change(MEDIASUBTYPE_YUY2, 64, 48, interval), S_OK) << interval;
    EXPECT_THAT(DescribeCurrentFormat(*pin.Get()), ::testing::StartsWith("YUY2 64x48 ")) << interval;
  }
}

TEST_F(SetFormat, WorksWithDriversThatCannotSetTheRate) {
  VideoDeviceSettings settings;
  settings.rate = RateControl::kFixed;
  FakeVideoDevice& device = AddCamera(settings);
  EXPECT_EQ(Change(MEDIASUBTYPE_YUY2, 64, 48, 666666), S_OK);
  EXPECT_EQ(DescribeCurrentFormat(*pin.Get()), "YUY2 64x48 333333") << "what the device says it delivers";
  device.SetSettings([](VideoDeviceSettings& changed) { changed.rate = RateControl::kNone; });
  EXPECT_EQ(Change(MEDIASUBTYPE_YUY2, 64, 48, 666666), S_OK);
}

TEST_F(SetFormat, RefusesWhatIsNoVideoType) {
  AddCamera();
  const ComPtr<IAMStreamConfig> config = StreamConfig(*pin.Get());
  VIDEOINFOHEADER video{};
  video.AvgTimePerFrame = 333333;
  video.bmiHeader.biSize = sizeof(video.bmiHeader);
  video.bmiHeader.biWidth = 64;
  video.bmiHeader.biHeight = 48;
  const AM_MEDIA_TYPE good = VideoType(MEDIASUBTYPE_YUY2, video);
  EXPECT_EQ(config->SetFormat(nullptr), E_POINTER);
  const auto refuses = [&config, &good](const std::function<void(AM_MEDIA_TYPE&)>& spoil) {
    AM_MEDIA_TYPE type = good;
    spoil(type);
    return config->SetFormat(&type) == kInvalidMediaType;
  };
  EXPECT_TRUE(refuses([](AM_MEDIA_TYPE& type) { type.pbFormat = nullptr; }));
  EXPECT_TRUE(refuses([](AM_MEDIA_TYPE& type) { type.cbFormat = 87; }));
  EXPECT_TRUE(refuses([](AM_MEDIA_TYPE& type) { type.cbFormat = 0; }));
  EXPECT_TRUE(refuses([](AM_MEDIA_TYPE& type) { type.formattype = FORMAT_VideoInfo2; }));
  EXPECT_TRUE(refuses([](AM_MEDIA_TYPE& type) { type.formattype = {}; }));
  EXPECT_TRUE(refuses([](AM_MEDIA_TYPE& type) { type.majortype = FourCcSubtype(0x73647561); }));
  EXPECT_TRUE(refuses([](AM_MEDIA_TYPE& type) { type.subtype = {}; }));
  AM_MEDIA_TYPE unspoilt = good;
  EXPECT_EQ(config->SetFormat(&unspoilt), S_OK);
}

TEST_F(SetFormat, RefusesSizesThatAreNone) {
  AddCamera();
  for (const auto& [width, height] :
       {std::pair<LONG, LONG>{0, 48}, {64, 0}, {-64, 48}, {64, -48}, {0x7FFFFFFF, 0x7FFFFFFF}}) {
    EXPECT_EQ(Change(MEDIASUBTYPE_YUY2, width, height, 333333), kInvalidMediaType) << width << "x" << height;
  }
}

TEST_F(SetFormat, ReadsAFormatBlockThatIsNotAligned) {
  AddCamera();
  VIDEOINFOHEADER video{};
  video.AvgTimePerFrame = 666666;
  video.bmiHeader.biSize = sizeof(video.bmiHeader);
  video.bmiHeader.biWidth = 64;
  video.bmiHeader.biHeight = 48;
  std::array<BYTE, sizeof(video) + 1> block{};
  std::memcpy(block.data() + 1, &video, sizeof(video));
  AM_MEDIA_TYPE type = VideoType(MEDIASUBTYPE_YUY2, video);
  type.pbFormat = block.data() + 1;
  EXPECT_EQ(StreamConfig(*pin.Get())->SetFormat(&type), S_OK);
  EXPECT_EQ(DescribeCurrentFormat(*pin.Get()), "YUY2 64x48 666666");
}

TEST_F(SetFormat, KeepsTheCurrentFormatWhenItIsRefused) {
  AddCamera();
  ASSERT_EQ(Change(MEDIASUBTYPE_MJPG, 128, 96, 333333), S_OK);
  EXPECT_EQ(Change(MEDIASUBTYPE_YUY2, 640, 480, 333333), kInvalidMediaType);
  EXPECT_EQ(DescribeCurrentFormat(*pin.Get()), "MJPG 128x96 333333");
}

// --- What stands in the way ---

TEST_F(Format, OfADeviceThatMayNotBeOpenedIsAccessDenied) {
  AddCamera();
  for (const int error : {EACCES, EPERM}) {
    kernel.Fail(kOpenCall, error);
    EXPECT_THAT(Results(), ElementsAre(E_ACCESSDENIED, E_ACCESSDENIED, E_ACCESSDENIED));
  }
}

TEST_F(Format, OfADeviceThatHasGoneIsNotConnected) {
  AddCamera();
  for (const int error : {ENODEV, ENOENT, ENXIO}) {
    kernel.Fail(kOpenCall, error);
    EXPECT_THAT(Results(), ElementsAre(kGone, kGone, kGone));
  }
}

TEST_F(Format, OfADeviceThatGoesAfterItWasOpenedIsNotConnected) {
  AddCamera();
  ASSERT_EQ(Change(MEDIASUBTYPE_YUY2, 64, 48, 333333), S_OK);
  UnplugLaptopCamera();
  EXPECT_EQ(SetWhole(MEDIASUBTYPE_YUY2, 32, 24, 333333), kGone);
  EXPECT_EQ(SetWhole(MEDIASUBTYPE_MJPG, 64, 48, 333333), kGone) << "and stays so";
}

TEST_F(Format, OfADeviceThatIsInUseIsBusy) {
  AddCamera();
  kernel.Fail(kOpenCall, EBUSY);
  EXPECT_THAT(Results(), ElementsAre(kInUse, kInUse, kInUse));
  kernel.FailNothing();
  kernel.Fail(VIDIOC_S_FMT, EBUSY);
  EXPECT_EQ(Change(MEDIASUBTYPE_YUY2, 64, 48, 333333), kInUse);
  kernel.FailNothing();
  EXPECT_EQ(Change(MEDIASUBTYPE_YUY2, 64, 48, 333333), S_OK);
}

TEST_F(Format, OfABrokenDeviceIsAnIoError) {
  AddCamera();
  kernel.Fail(VIDIOC_S_FMT, EIO);
  EXPECT_EQ(Change(MEDIASUBTYPE_YUY2, 64, 48, 333333), kIoError);
}

TEST_F(Format, IsSetOnASecondTryAfterTheObstacleHasGone) {
  AddCamera();
  kernel.Fail(kOpenCall, EACCES);
  EXPECT_EQ(Results()[2], E_ACCESSDENIED);
  kernel.FailNothing();
  EXPECT_THAT(Results(), ElementsAre(S_OK, S_OK, S_OK));
}

TEST_F(Format, OfADeviceWhoseDriverKeepsItForTheFirstHandleIsBusyForTheSecond) {
  VideoDeviceSettings settings;
  settings.hasPrivileges = true;
  AddCamera(settings);
  ASSERT_EQ(Change(MEDIASUBTYPE_YUY2, 64, 48, 333333), S_OK);
  const ComPtr<IBaseFilter> second = FirstCamera();
  EXPECT_EQ(ChangeFormat(*FindPin(*second.Get(), PINDIR_OUTPUT).Get(), MEDIASUBTYPE_YUY2, 64, 48, 333333),
            kInUse);
}

}  // namespace
