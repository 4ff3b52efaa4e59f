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
  EXPECT_EQ(Video(types.front()).dwBitRate, 640ULL * 480 * 16 * 10'000'000 / 333'333);
}

TEST_F(OfferedFormatsTest, LimitsTheBitRateToItsType) {
  AddCamera({{V4L2_PIX_FMT_YUYV, {Discrete(3840, 2160, {60})}}});
  std::vector<MediaType> types;
  ASSERT_EQ(ListMediaTypes(*pin.Get(), types), S_OK);
  EXPECT_EQ(Video(types.at(0)).dwBitRate, 0xFFFFFFFFU);
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
  EXPECT_EQ(Video(types.front()).bmiHeader.biBitCount, 24) << "as on Windows";
  EXPECT_EQ(Video(types.front()).bmiHeader.biSizeImage, 640U * 480 * 3);
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

TEST_F(OfferedFormatsTest, SizeRangeOffersTheCommonSizesOnItsGridOrItsMaximum) {
  struct Range {
    v4l2_frmsize_stepwise size;
    std::vector<std::string> expected;
  };
  for (const auto& [range, expected] : {
           Range{{100, 640, 60, 120, 480, 1}, {"160x120", "640x360", "640x480"}},
           Range{{160, 640, 1, 200, 480, 0}, {"320x240", "352x288", "424x240", "640x360", "640x480"}},
           Range{{161, 641, 2, 120, 480, 1}, {"641x480"}},
           Range{{160, 640, 1, 121, 481, 2}, {"640x481"}},
           Range{{160, 640, 1, 100, 480, 20},
                 {"160x120", "320x180", "320x240", "424x240", "640x360", "640x480"}},
       }) {
    SizeOffer size = Discrete(0, 0, {30});
    size.type = V4L2_FRMSIZE_TYPE_STEPWISE;
    size.size = range;
    AddCamera({{V4L2_PIX_FMT_YUYV, {size}}});
    std::vector<std::string> offers;
    for (const std::string& offered : expected) {
      offers.push_back("YUY2 " + offered + " 333333");
    }
    EXPECT_EQ(Offered(), offers);
    EXPECT_EQ(DescribeCurrentFormat(*pin.Get()), offers.front());
    UnplugLaptopCamera();
  }
}

TEST_F(OfferedFormatsTest, IntervalRangeOffersTheCommonRatesOrItsMinimum) {
  struct Range {
    v4l2_fract min;
    v4l2_fract max;
    std::vector<std::string> expected;
  };
  for (const auto& [min, max, expected] :
       {Range{{1, 35}, {1, 24}, {"333333", "400000", "416666"}},
        Range{{1, 60}, {1, 50}, {"166666", "200000"}}, Range{{1, 7}, {1, 6}, {"1428571"}}}) {
    SizeOffer size = Discrete(64, 48, {});
    size.intervals = {V4L2_FRMIVAL_TYPE_STEPWISE, {min, max, min}};
    AddCamera({{V4L2_PIX_FMT_YUYV, {size}}});
    std::vector<std::string> offers;
    for (const std::string& offered : expected) {
      offers.push_back("YUY2 64x48 " + offered);
    }
    EXPECT_EQ(Offered(), offers);
    UnplugLaptopCamera();
  }
}

TEST_F(OfferedFormatsTest, ExcludesSizesThatAMediaTypeCannotHold) {
  constexpr std::uint32_t kMaxSide = 0x7FFFFFFF;
  for (const std::uint32_t pixelFormat : {V4L2_PIX_FMT_MJPEG, V4L2_PIX_FMT_YUYV}) {
    std::vector<SizeOffer> sizes;
    for (const auto& [width, height] : {std::pair{0U, 48U},
                                        {64U, 0U},
                                        {0U, 0U},
                                        {kMaxSide + 1, 48U},
                                        {64U, kMaxSide + 1},
                                        {1U, 1U},
                                        {63U, 47U},
                                        {kMaxSide, 2U},
                                        {2U, kMaxSide}}) {
      sizes.push_back(Discrete(width, height, {30}));
    }
    AddCamera({{pixelFormat, sizes}});
    const std::string name = pixelFormat == V4L2_PIX_FMT_MJPEG ? "MJPG " : "YUY2 ";
    EXPECT_THAT(Offered(), ElementsAre(name + "1x1 333333", name + "63x47 333333",
                                       name + "2147483647x2 333333", name + "2x2147483647 333333"));
    UnplugLaptopCamera();
  }
}

// --- Drivers that do not enumerate ---

TEST_F(OfferedFormatsTest, OffersTheCurrentSizeIfTheDriverListsNone) {
  for (const int error : {EINVAL, ENOTTY}) {
    AddCamera({{V4L2_PIX_FMT_YUYV, {Discrete(64, 48, {30})}}});
    kernel.Fail(VIDIOC_ENUM_FRAMESIZES, error);
    EXPECT_THAT(Offered(), ElementsAre("YUY2 64x48 333333"));
    UnplugLaptopCamera();
  }
}

TEST_F(OfferedFormatsTest, OffersNothingIfTheDriverHasNoCurrentSizeEither) {
  AddCamera({{V4L2_PIX_FMT_YUYV, {Discrete(64, 48, {30})}}});
  kernel.Fail(VIDIOC_ENUM_FRAMESIZES, ENOTTY);
  kernel.AnswerIoctl(VIDIOC_G_FMT, [](void* argument) {
    auto& pix = static_cast<v4l2_format*>(argument)->fmt.pix;
    pix.width = 64;
    pix.height = 48;
    return ENOTTY;
  });
  EXPECT_THAT(Offered(), IsEmpty());
}

TEST_F(OfferedFormatsTest, OffersTheCurrentRateIfTheDriverListsNone) {
  struct Driver {
    int error;  // of VIDIOC_G_PARM
    v4l2_fract current;
    std::string expected;
  };
  for (const auto& [error, current, expected] :
       {Driver{0, {1, 15}, "666666"}, Driver{0, {1, 10'000'000}, "1"}, Driver{0, {0, 15}, "333333"},
        Driver{0, {1, 0}, "333333"}, Driver{ENOTTY, {1, 15}, "333333"}, Driver{EINVAL, {1, 15}, "333333"}}) {
    AddCamera({{V4L2_PIX_FMT_YUYV, {Discrete(64, 48, {30})}}});
    kernel.Fail(VIDIOC_ENUM_FRAMEINTERVALS, ENOTTY);
    kernel.AnswerIoctl(VIDIOC_G_PARM, [error = error, current = current](void* argument) {
      auto& parameter = *static_cast<v4l2_streamparm*>(argument);
      parameter.parm.capture.timeperframe = current;
      return parameter.type == V4L2_BUF_TYPE_VIDEO_CAPTURE ? error : EINVAL;
    });
    EXPECT_THAT(Offered(), ElementsAre("YUY2 64x48 " + expected));
    UnplugLaptopCamera();
  }
}

TEST_F(OfferedFormatsTest, EndlessEnumerationsEnd) {
  AddCamera();
  kernel.AnswerIoctl(VIDIOC_ENUM_FMT, [](void* argument) {
    static_cast<v4l2_fmtdesc*>(argument)->pixelformat = V4L2_PIX_FMT_YUYV;
    return 0;
  });
  kernel.AnswerIoctl(VIDIOC_ENUM_FRAMESIZES, [](void* argument) {
    auto& size = *static_cast<v4l2_frmsizeenum*>(argument);
    size.type = V4L2_FRMSIZE_TYPE_DISCRETE;
    size.discrete = {size.index + 1, 1};
    return 0;
  });
  kernel.AnswerIoctl(VIDIOC_ENUM_FRAMEINTERVALS, [](void* argument) {
    auto& interval = *static_cast<v4l2_frmivalenum*>(argument);
    interval.type = V4L2_FRMIVAL_TYPE_DISCRETE;
    interval.discrete = {1, interval.index + 1};
    return 0;
  });
  EXPECT_THAT(Offered(), SizeIs(::testing::AllOf(::testing::Gt(100U), ::testing::Le(1024U))));
}

TEST_F(OfferedFormatsTest, EndlessSizesEnd) {
  AddCamera({{V4L2_PIX_FMT_YUYV, {Discrete(64, 48, {30})}}});
  kernel.AnswerIoctl(VIDIOC_ENUM_FRAMESIZES, [](void* argument) {
    auto& size = *static_cast<v4l2_frmsizeenum*>(argument);
    size.type = V4L2_FRMSIZE_TYPE_DISCRETE;
    size.discrete = {64, 48};
    return 0;
  });
  EXPECT_THAT(Offered(), ElementsAre("YUY2 64x48 333333"));
}

TEST_F(OfferedFormatsTest, ReportsTheErrorOfEveryEnumeration) {
  AddCamera();
  for (const unsigned long call : std::initializer_list<unsigned long>{
           VIDIOC_ENUM_FMT, VIDIOC_ENUM_FRAMESIZES, VIDIOC_ENUM_FRAMEINTERVALS}) {
    kernel.Fail(call, EIO);
    EXPECT_THAT(Results(), ElementsAre(kDeviceIoError, kDeviceIoError, kDeviceIoError)) << call;
    kernel.FailNothing();
  }
  kernel.Fail(VIDIOC_ENUM_FRAMESIZES, ENOTTY);
  kernel.Fail(VIDIOC_G_FMT, EIO);
  EXPECT_EQ(Results()[0], kDeviceIoError);
  kernel.FailNothing();
  kernel.Fail(VIDIOC_ENUM_FRAMEINTERVALS, ENOTTY);
  kernel.Fail(VIDIOC_G_PARM, EIO);
  EXPECT_EQ(Results()[0], kDeviceIoError);
}

TEST_F(OfferedFormatsTest, IsEmptyIfTheDeviceListsNoFormats) {
  AddCamera();
  kernel.Fail(VIDIOC_ENUM_FMT, EINVAL);
  EXPECT_THAT(Offered(), IsEmpty());
  MediaType type;
  EXPECT_EQ(CurrentFormat(*pin.Get(), type), kNoTypes);
}

TEST_F(OfferedFormatsTest, IgnoresIntervalsOfZero) {
  SizeOffer size = Discrete(64, 48, {30});
  for (const v4l2_fract& interval :
       {v4l2_fract{1, 0}, {0, 30}, {0, 0}, {1, 20'000'000}, {1, 10'000'000}, {10, 1}}) {
    size.intervals.values.push_back(interval);
  }
  AddCamera({{V4L2_PIX_FMT_YUYV, {size}}});
  EXPECT_THAT(Offered(), ElementsAre("YUY2 64x48 333333", "YUY2 64x48 1", "YUY2 64x48 100000000"));
}

}  // namespace
}  // namespace linux_support
