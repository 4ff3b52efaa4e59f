// The media types that a camera offers.
#include "support/linux/V4l2FormatTest.h"

namespace linux_support {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

using OfferedFormatsTest = V4l2FormatTest;

TEST_F(OfferedFormatsTest, ListsAllSizesAndRatesInDeviceOrder) {
  AddCamera({{V4L2_PIX_FMT_YUYV, {Discrete(640, 480, {30, 15}), Discrete(320, 240, {30})}},
             {V4L2_PIX_FMT_MJPEG, {Discrete(1280, 720, {60})}}});
  EXPECT_THAT(Offered(), ElementsAre("YUY2 640x480 333333", "YUY2 640x480 666666", "YUY2 320x240 333333",
                                     "MJPG 1280x720 166666"));
}

TEST_F(OfferedFormatsTest, IsTheSameForEveryEnumerator) {
  AddCamera();
  const std::vector<std::string> first = Offered();
  EXPECT_THAT(first, SizeIs(6));
  EXPECT_EQ(Offered(), first);
}

TEST_F(OfferedFormatsTest, DescribesUncompressedFormatsCompletely) {
  AddCamera({{V4L2_PIX_FMT_YUYV, {Discrete(640, 480, {30})}}});
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

TEST_F(OfferedFormatsTest, DescribesCompressedFormatsCompletely) {
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

TEST_F(OfferedFormatsTest, OffersEveryRawFormatAsYuy2) {
  for (const std::uint32_t pixelFormat :
       {V4L2_PIX_FMT_NV12, V4L2_PIX_FMT_NV21, V4L2_PIX_FMT_NV16, V4L2_PIX_FMT_NV61, V4L2_PIX_FMT_YUV420,
        V4L2_PIX_FMT_YVU420, V4L2_PIX_FMT_YUV422P, V4L2_PIX_FMT_UYVY, V4L2_PIX_FMT_YVYU, V4L2_PIX_FMT_VYUY}) {
    AddCamera({{pixelFormat, {Discrete(64, 48, {30})}}, {V4L2_PIX_FMT_MJPEG, {Discrete(64, 48, {30})}}});
    EXPECT_THAT(Offered(), ElementsAre("YUY2 64x48 333333", "MJPG 64x48 333333")) << pixelFormat;
    UnplugLaptopCamera();
  }
}

TEST_F(OfferedFormatsTest, ExcludesUnsupportedFormats) {
  AddCamera({{V4L2_PIX_FMT_H264, {Discrete(1920, 1080, {60})}},
             {V4L2_PIX_FMT_GREY, {Discrete(640, 360, {60})}},
             {V4L2_PIX_FMT_Y16, {Discrete(640, 480, {60})}},
             {V4L2_PIX_FMT_Z16, {Discrete(640, 480, {60})}},
             {V4L2_PIX_FMT_RGB24, {Discrete(640, 480, {60})}},
             {V4L2_PIX_FMT_YUYV, {Discrete(320, 240, {30})}}});
  EXPECT_THAT(Offered(), ElementsAre("YUY2 320x240 333333"));
}

TEST_F(OfferedFormatsTest, ExcludesOddWidthsThatCannotBeConverted) {
  AddCamera({{V4L2_PIX_FMT_NV12, {Discrete(63, 48, {30}), Discrete(64, 47, {30})}},
             {V4L2_PIX_FMT_YUYV, {Discrete(65, 48, {30})}}});
  EXPECT_THAT(Offered(), ElementsAre("YUY2 64x47 333333", "YUY2 65x48 333333"));
}

TEST_F(OfferedFormatsTest, ListsASizeAndRateOnceAndPrefersTheNativeFormat) {
  FakeV4l2Device& device =
      AddCamera({{V4L2_PIX_FMT_UYVY, {Discrete(64, 48, {60, 30}), Discrete(32, 24, {30})}},
                 {V4L2_PIX_FMT_NV12, {Discrete(64, 48, {60, 30}), Discrete(128, 96, {30})}},
                 {V4L2_PIX_FMT_YUYV, {Discrete(64, 48, {30, 15})}}});
  EXPECT_THAT(Offered(), ElementsAre("YUY2 64x48 166666", "YUY2 64x48 333333", "YUY2 32x24 333333",
                                     "YUY2 128x96 333333", "YUY2 64x48 666666"));
  const auto chosenFor = [&](LONG width, LONG height, LONGLONG interval) {
    EXPECT_EQ(SetFormat(MEDIASUBTYPE_YUY2, width, height, interval), S_OK);
    return device.Format().pixelformat;
  };
  EXPECT_EQ(chosenFor(64, 48, 333333), V4L2_PIX_FMT_YUYV) << "offered in both formats";
  EXPECT_EQ(chosenFor(64, 48, 666666), V4L2_PIX_FMT_YUYV);
  EXPECT_EQ(chosenFor(64, 48, 166666), V4L2_PIX_FMT_UYVY) << "the first in device order";
  EXPECT_EQ(chosenFor(32, 24, 333333), V4L2_PIX_FMT_UYVY);
  EXPECT_EQ(chosenFor(128, 96, 333333), V4L2_PIX_FMT_NV12);
}

TEST_F(OfferedFormatsTest, RoundsIntervalsDown) {
  SizeOffer size = Discrete(64, 48, {30, 60, 7});
  size.intervals.values.push_back({1001, 30000});
  size.intervals.values.push_back({2, 15});
  AddCamera({{V4L2_PIX_FMT_YUYV, {size}}});
  EXPECT_THAT(Offered(), ElementsAre("YUY2 64x48 333333", "YUY2 64x48 166666", "YUY2 64x48 1428571",
                                     "YUY2 64x48 333666", "YUY2 64x48 1333333"));
}

TEST_F(OfferedFormatsTest, IntervalRangeIncludesItsEnds) {
  for (const std::uint32_t type : {V4L2_FRMIVAL_TYPE_STEPWISE, V4L2_FRMIVAL_TYPE_CONTINUOUS}) {
    SizeOffer size = Discrete(64, 48, {});
    size.intervals = {type, {{1, 60}, {1, 5}, {1, 60}}};
    AddCamera({{V4L2_PIX_FMT_YUYV, {size}}});
    EXPECT_THAT(Offered(), ::testing::IsSupersetOf({"YUY2 64x48 166666", "YUY2 64x48 2000000"}));
    EXPECT_LE(Offered().size(), 100U);
    UnplugLaptopCamera();
  }
}

TEST_F(OfferedFormatsTest, SizeRangeOffersTheCommonSizes) {
  for (const std::uint32_t type : {V4L2_FRMSIZE_TYPE_STEPWISE, V4L2_FRMSIZE_TYPE_CONTINUOUS}) {
    SizeOffer size = Discrete(16, 16, {30});
    size.type = type;
    size.size = {16, 1920, type == V4L2_FRMSIZE_TYPE_STEPWISE ? 16U : 1U,
                 16, 1080, type == V4L2_FRMSIZE_TYPE_STEPWISE ? 8U : 1U};
    AddCamera({{V4L2_PIX_FMT_YUYV, {size}}});
    EXPECT_THAT(Offered(), ::testing::IsSupersetOf(
                               {"YUY2 640x480 333333", "YUY2 1280x720 333333", "YUY2 1920x1080 333333"}));
    EXPECT_LE(Offered().size(), 100U);
    for (const std::string& offer : Offered()) {
      LONG width = 0;
      LONG height = 0;
      ASSERT_EQ(std::sscanf(offer.c_str(), "YUY2 %dx%d", &width, &height), 2);
      EXPECT_EQ(SetFormat(MEDIASUBTYPE_YUY2, width, height, 333333), S_OK) << offer;
    }
    UnplugLaptopCamera();
  }
}

TEST_F(OfferedFormatsTest, SizeRangeWithoutACommonSizeIsNotEmpty) {
  SizeOffer size = Discrete(100, 50, {30});
  size.type = V4L2_FRMSIZE_TYPE_STEPWISE;
  size.size = {100, 108, 4, 50, 58, 4};
  AddCamera({{V4L2_PIX_FMT_YUYV, {size}}});
  EXPECT_THAT(Offered(), ::testing::Not(IsEmpty()));
  EXPECT_EQ(DescribeCurrentFormat(*pin.Get()), Offered().front());
}

TEST_F(OfferedFormatsTest, IsEmptyIfTheDeviceListsNoFormats) {
  AddCamera();
  kernel.Fail(VIDIOC_ENUM_FMT, EINVAL);
  EXPECT_THAT(Offered(), IsEmpty());
}

TEST_F(OfferedFormatsTest, IgnoresIntervalsOfZero) {
  SizeOffer size = Discrete(64, 48, {30});
  size.intervals.values.push_back({1, 0});
  size.intervals.values.push_back({0, 30});
  size.intervals.values.push_back({0, 0});
  AddCamera({{V4L2_PIX_FMT_YUYV, {size}}});
  EXPECT_THAT(Offered(), ::testing::Contains("YUY2 64x48 333333"));
}

}  // namespace
}  // namespace linux_support
