// Setting a camera's format, and the errors of accessing its formats.
#include <array>
#include <cstring>
#include <limits>

#include "support/linux/V4l2FormatTest.h"

namespace linux_support {
namespace {

using ::testing::ElementsAre;

using FormatErrorTest = V4l2FormatTest;
using SetFormatTest = V4l2FormatTest;

TEST_F(SetFormatTest, DefaultIsTheFirstOfferedFormat) {
  AddCamera();
  EXPECT_EQ(DescribeCurrentFormat(*pin.Get()), "YUY2 64x48 333333");
}

TEST_F(SetFormatTest, SetsTheDeviceAndTheCurrentFormat) {
  FakeV4l2Device& device = AddCamera();
  EXPECT_EQ(Change(MEDIASUBTYPE_MJPG, 128, 96, 166666), S_OK);
  EXPECT_EQ(DescribeCurrentFormat(*pin.Get()), "MJPG 128x96 166666");
  EXPECT_EQ(Change(MEDIASUBTYPE_YUY2, 64, 48, 666666), S_OK);
  EXPECT_EQ(DescribeCurrentFormat(*pin.Get()), "YUY2 64x48 666666");
  EXPECT_EQ(device.Format().pixelformat, V4L2_PIX_FMT_YUYV);
  EXPECT_EQ(device.Format().width, 64U);
  EXPECT_EQ(device.Format().height, 48U);
  EXPECT_EQ(device.Interval().numerator, 1U);
  EXPECT_EQ(device.Interval().denominator, 15U);
}

TEST_F(SetFormatTest, CurrentFormatIsConsistentAfterPartialChanges) {
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

TEST_F(SetFormatTest, EveryOfferedFormatCanBeSet) {
  AddCamera();
  std::vector<MediaType> types;
  ASSERT_EQ(ListMediaTypes(*pin.Get(), types), S_OK);
  for (const MediaType& type : types) {
    EXPECT_EQ(StreamConfig(*pin.Get())->SetFormat(type.get()), S_OK) << Describe(type);
    EXPECT_EQ(DescribeCurrentFormat(*pin.Get()), Describe(type));
  }
}

TEST_F(SetFormatTest, AcceptsIntervalsComputedFromAWholeRate) {
  SizeOffer size = Discrete(64, 48, {});
  size.intervals.values = {{1001, 30000}, {1, 15}};
  FakeV4l2Device& device = AddCamera({{V4L2_PIX_FMT_YUYV, {size}}});
  // The library truncates 29.97 fps to 29 fps, which is 344827 units.
  EXPECT_EQ(Change(MEDIASUBTYPE_YUY2, 64, 48, 344827), S_OK);
  EXPECT_EQ(device.Interval().denominator, 30000U);
  EXPECT_EQ(DescribeCurrentFormat(*pin.Get()), "YUY2 64x48 333666");
}

TEST_F(SetFormatTest, RejectsFormatsThatTheDeviceReplaces) {
  AddCamera();
  EXPECT_EQ(Change(MEDIASUBTYPE_YUY2, 640, 480, 333333), kInvalidMediaType);
  EXPECT_EQ(Change(MEDIASUBTYPE_NV12, 64, 48, 333333), kInvalidMediaType);
  EXPECT_EQ(Change(MEDIASUBTYPE_ARGB32, 64, 48, 333333), kInvalidMediaType);
}

TEST_F(SetFormatTest, RejectsTheNativeSubtypeOfConvertedFormats) {
  AddCamera({{V4L2_PIX_FMT_NV12, {Discrete(64, 48, {30})}}});
  EXPECT_EQ(SetFormat(MEDIASUBTYPE_NV12, 64, 48, 333333), kInvalidMediaType);
  EXPECT_EQ(SetFormat(MEDIASUBTYPE_YUY2, 64, 48, 333333), S_OK);
}

TEST_F(SetFormatTest, RejectsAnOfferThatTheDriverSubstitutes) {
  FakeV4l2Device& device = AddCamera();
  device.SetSettings([](VideoDeviceSettings& settings) {
    settings.substituteFormat = [](v4l2_pix_format& format) { format.width = 32; };
  });
  EXPECT_EQ(Change(MEDIASUBTYPE_YUY2, 64, 48, 333333), kInvalidMediaType);
  device.SetSettings([](VideoDeviceSettings& settings) {
    settings.substituteFormat = [](v4l2_pix_format& format) { format.height = 24; };
  });
  EXPECT_EQ(Change(MEDIASUBTYPE_YUY2, 64, 48, 333333), kInvalidMediaType);
  device.SetSettings([](VideoDeviceSettings& settings) {
    settings.substituteFormat = [](v4l2_pix_format& format) { format.pixelformat = V4L2_PIX_FMT_MJPEG; };
  });
  EXPECT_EQ(Change(MEDIASUBTYPE_YUY2, 64, 48, 333333), kInvalidMediaType);
}

TEST_F(SetFormatTest, RequestsProgressiveFrames) {
  FakeV4l2Device& device = AddCamera();
  std::uint32_t field = V4L2_FIELD_ANY;
  device.SetSettings([&field](VideoDeviceSettings& settings) {
    settings.substituteFormat = [&field](const v4l2_pix_format& format) { field = format.field; };
  });
  ASSERT_EQ(Change(MEDIASUBTYPE_YUY2, 64, 48, 333333), S_OK);
  EXPECT_EQ(field, V4L2_FIELD_NONE);
}

TEST_F(SetFormatTest, ChoosesAmongTheRatesOfTheSizeAndSubtype) {
  SizeOffer size = Discrete(64, 48, {});
  size.intervals.values = {{3, 100}, {4, 100}};
  FakeV4l2Device& device = AddCamera(
      {{V4L2_PIX_FMT_YUYV, {Discrete(32, 24, {30}), Discrete(64, 24, {30}), Discrete(32, 48, {30}), size}},
       {V4L2_PIX_FMT_MJPEG, {Discrete(64, 48, {30})}}});
  for (const auto& [interval, numerator] : {std::pair{333333LL, 3U}, {350000LL, 3U}, {350001LL, 4U}}) {
    ASSERT_EQ(Change(MEDIASUBTYPE_YUY2, 64, 48, interval), S_OK);
    EXPECT_EQ(device.Format().pixelformat, V4L2_PIX_FMT_YUYV);
    EXPECT_EQ(device.Format().width, 64U);
    EXPECT_EQ(device.Format().height, 48U);
    EXPECT_EQ(device.Interval().numerator, numerator) << interval;
  }
}

TEST_F(SetFormatTest, ChoosesTheFirstOfEqualIntervals) {
  SizeOffer size = Discrete(64, 48, {});
  size.intervals.values = {{1001, 30000}, {333666, 10'000'000}};
  FakeV4l2Device& device = AddCamera({{V4L2_PIX_FMT_YUYV, {size}}});
  v4l2_fract requested{};
  kernel.AnswerIoctl(VIDIOC_S_PARM, [&requested](void* argument) {
    requested = static_cast<v4l2_streamparm*>(argument)->parm.capture.timeperframe;
    return 0;
  });
  ASSERT_EQ(Change(MEDIASUBTYPE_YUY2, 64, 48, 333666), S_OK);
  EXPECT_EQ(requested.denominator, 30000U);
  EXPECT_EQ(device.Format().width, 64U);
}

// A driver that does not list its sizes may support others than the current one.
TEST_F(SetFormatTest, RequestsTheIntervalItselfForSizesThatAreNotListed) {
  AddCamera();
  kernel.Fail(VIDIOC_ENUM_FRAMESIZES, ENOTTY);
  v4l2_fract requested{};
  kernel.AnswerIoctl(VIDIOC_S_PARM, [&requested](void* argument) {
    requested = static_cast<v4l2_streamparm*>(argument)->parm.capture.timeperframe;
    return 0;
  });
  for (const auto& [interval, units] : {std::pair{400'000LL, 400'000U},
                                        {0LL, 1U},
                                        {-1LL, 1U},
                                        {std::numeric_limits<LONGLONG>::max(), 0x7FFFFFFFU}}) {
    ASSERT_EQ(Change(MEDIASUBTYPE_YUY2, 32, 24, interval), S_OK);
    EXPECT_EQ(requested.numerator, units);
    EXPECT_EQ(requested.denominator, 10'000'000U);
  }
}

TEST_F(SetFormatTest, ReportsTheRateThatTheDriverChose) {
  FakeV4l2Device& device = AddCamera();
  EXPECT_EQ(Change(MEDIASUBTYPE_YUY2, 64, 48, 1'000'000), S_OK);
  EXPECT_EQ(DescribeCurrentFormat(*pin.Get()), "YUY2 64x48 666666");
  device.SetSettings([](VideoDeviceSettings& settings) {
    settings.substituteInterval = [](v4l2_fract& interval) { interval = {1, 12}; };
  });
  EXPECT_EQ(Change(MEDIASUBTYPE_YUY2, 64, 48, 333333), S_OK);
  EXPECT_EQ(DescribeCurrentFormat(*pin.Get()), "YUY2 64x48 833333");
}

TEST_F(SetFormatTest, AcceptsInvalidIntervals) {
  AddCamera();
  // The library requests 33 for 0 fps.
  for (const LONGLONG interval :
       {0LL, 33LL, -1LL, std::numeric_limits<LONGLONG>::max(), std::numeric_limits<LONGLONG>::min()}) {
    EXPECT_EQ(Change(MEDIASUBTYPE_YUY2, 64, 48, interval), S_OK) << interval;
    EXPECT_THAT(DescribeCurrentFormat(*pin.Get()), ::testing::StartsWith("YUY2 64x48 ")) << interval;
  }
}

TEST_F(SetFormatTest, SupportsDriversThatCannotSetTheRate) {
  VideoDeviceSettings settings;
  settings.rate = RateControl::kFixed;
  FakeV4l2Device& device = AddCamera(settings);
  EXPECT_EQ(Change(MEDIASUBTYPE_YUY2, 64, 48, 666666), S_OK);
  EXPECT_EQ(DescribeCurrentFormat(*pin.Get()), "YUY2 64x48 333333") << "the device's actual rate";
  device.SetSettings([](VideoDeviceSettings& changed) { changed.rate = RateControl::kNone; });
  EXPECT_EQ(Change(MEDIASUBTYPE_YUY2, 64, 48, 666666), S_OK);
}

TEST_F(SetFormatTest, DoesNotSetTheRateIfTheDriverCannot) {
  VideoDeviceSettings settings;
  settings.rate = RateControl::kFixed;
  AddCamera(settings);
  kernel.Fail(VIDIOC_S_PARM, EIO);
  EXPECT_EQ(Change(MEDIASUBTYPE_YUY2, 64, 48, 666666), S_OK);
}

TEST_F(SetFormatTest, IgnoresTheRateOfAFailedCall) {
  AddCamera();
  for (const auto call : {VIDIOC_G_PARM, VIDIOC_S_PARM}) {
    for (const auto& [error, expected] :
         {std::pair{ENOTTY, S_OK}, std::pair{EINVAL, S_OK}, std::pair{EIO, kDeviceIoError}}) {
      ASSERT_EQ(Change(MEDIASUBTYPE_YUY2, 64, 48, 333333), S_OK);
      kernel.AnswerIoctl(call, [error = error](void* argument) {
        auto& capture = static_cast<v4l2_streamparm*>(argument)->parm.capture;
        capture.capability = V4L2_CAP_TIMEPERFRAME;
        capture.timeperframe = {1, 12};
        return error;
      });
      EXPECT_EQ(Change(MEDIASUBTYPE_YUY2, 64, 48, 500'000), expected) << error;
      EXPECT_EQ(DescribeCurrentFormat(*pin.Get()),
                expected == S_OK ? "YUY2 64x48 500000" : "YUY2 64x48 333333");
      kernel.AnswerIoctl(call, nullptr);
    }
  }
}

TEST_F(SetFormatTest, KeepsTheRequestedIntervalIfTheDriverReportsNone) {
  AddCamera();
  for (const auto& [reported, expected] :
       {std::pair{v4l2_fract{0, 30}, "YUY2 64x48 500000"}, std::pair{v4l2_fract{1, 0}, "YUY2 64x48 500000"},
        std::pair{v4l2_fract{1, 10'000'000}, "YUY2 64x48 1"}}) {
    kernel.AnswerIoctl(VIDIOC_G_PARM, [reported = reported](void* argument) {
      static_cast<v4l2_streamparm*>(argument)->parm.capture.timeperframe = reported;
      return 0;
    });
    EXPECT_EQ(Change(MEDIASUBTYPE_YUY2, 64, 48, 500'000), S_OK);
    EXPECT_EQ(DescribeCurrentFormat(*pin.Get()), expected);
  }
}

TEST_F(SetFormatTest, BitRateFollowsFromTheInterval) {
  VideoDeviceSettings settings;
  settings.rate = RateControl::kNone;
  AddCamera(settings);
  for (const auto& [interval, bitRate] :
       {std::pair{0LL, 0U}, {-1LL, 0U}, {1LL, 0xFFFFFFFFU}, {10'000'000LL, 64U * 48 * 16}}) {
    ASSERT_EQ(Change(MEDIASUBTYPE_YUY2, 64, 48, interval), S_OK);
    MediaType type;
    ASSERT_EQ(CurrentFormat(*pin.Get(), type), S_OK);
    EXPECT_EQ(Video(type).dwBitRate, bitRate) << interval;
  }
}

TEST_F(SetFormatTest, AcceptsTheSmallestSize) {
  AddCamera({{V4L2_PIX_FMT_MJPEG, {Discrete(1, 1, {30})}}});
  EXPECT_EQ(Change(MEDIASUBTYPE_MJPG, 1, 1, 333333), S_OK);
}

TEST_F(SetFormatTest, RejectsInvalidTypesWithoutTheDevice) {
  AddCamera();
  kernel.Fail(kOpenCall, EACCES);
  for (const auto& [width, height] : {std::pair<LONG, LONG>{0, 48}, {64, 0}, {-64, 48}, {64, -48}}) {
    EXPECT_EQ(SetFormat(MEDIASUBTYPE_YUY2, width, height, 333333), kInvalidMediaType);
  }
  for (const GUID& subtype : {GUID{}, MEDIASUBTYPE_ARGB32}) {
    EXPECT_EQ(SetFormat(subtype, 64, 48, 333333), kInvalidMediaType);
  }
  VIDEOINFOHEADER video = VideoHeader(64, 48, 333333);
  AM_MEDIA_TYPE type = VideoType(MEDIASUBTYPE_YUY2, video);
  type.formattype = FORMAT_VideoInfo2;
  EXPECT_EQ(StreamConfig(*pin.Get())->SetFormat(&type), kInvalidMediaType);
  EXPECT_EQ(SetFormat(MEDIASUBTYPE_YUY2, 64, 48, 333333), E_ACCESSDENIED) << "a valid type";
}

TEST_F(SetFormatTest, RejectsTypesThatAreNotVideo) {
  AddCamera();
  const ComPtr<IAMStreamConfig> config = StreamConfig(*pin.Get());
  VIDEOINFOHEADER video = VideoHeader(64, 48, 333333);
  const AM_MEDIA_TYPE good = VideoType(MEDIASUBTYPE_YUY2, video);
  EXPECT_EQ(config->SetFormat(nullptr), E_POINTER);
  const auto rejects = [&config, &good](const std::function<void(AM_MEDIA_TYPE&)>& modify) {
    AM_MEDIA_TYPE type = good;
    modify(type);
    return config->SetFormat(&type) == kInvalidMediaType;
  };
  EXPECT_TRUE(rejects([](AM_MEDIA_TYPE& type) { type.pbFormat = nullptr; }));
  EXPECT_TRUE(rejects([](AM_MEDIA_TYPE& type) { type.cbFormat = 87; }));
  EXPECT_TRUE(rejects([](AM_MEDIA_TYPE& type) { type.cbFormat = 0; }));
  EXPECT_TRUE(rejects([](AM_MEDIA_TYPE& type) { type.formattype = FORMAT_VideoInfo2; }));
  EXPECT_TRUE(rejects([](AM_MEDIA_TYPE& type) { type.formattype = {}; }));
  EXPECT_TRUE(rejects([](AM_MEDIA_TYPE& type) { type.majortype = FourCcSubtype(0x73647561); }));
  EXPECT_TRUE(rejects([](AM_MEDIA_TYPE& type) { type.subtype = {}; }));
  AM_MEDIA_TYPE unmodified = good;
  EXPECT_EQ(config->SetFormat(&unmodified), S_OK);
}

TEST_F(SetFormatTest, RejectsInvalidSizes) {
  AddCamera();
  for (const auto& [width, height] :
       {std::pair<LONG, LONG>{0, 48}, {64, 0}, {-64, 48}, {64, -48}, {0x7FFFFFFF, 0x7FFFFFFF}}) {
    EXPECT_EQ(Change(MEDIASUBTYPE_YUY2, width, height, 333333), kInvalidMediaType) << width << "x" << height;
  }
}

TEST_F(SetFormatTest, AcceptsAnUnalignedFormatBlock) {
  AddCamera();
  VIDEOINFOHEADER video = VideoHeader(64, 48, 666666);
  std::array<BYTE, sizeof(video) + 1> block{};
  std::memcpy(block.data() + 1, &video, sizeof(video));
  AM_MEDIA_TYPE type = VideoType(MEDIASUBTYPE_YUY2, video);
  type.pbFormat = block.data() + 1;
  EXPECT_EQ(StreamConfig(*pin.Get())->SetFormat(&type), S_OK);
  EXPECT_EQ(DescribeCurrentFormat(*pin.Get()), "YUY2 64x48 666666");
}

TEST_F(SetFormatTest, KeepsTheCurrentFormatOnFailure) {
  AddCamera();
  ASSERT_EQ(Change(MEDIASUBTYPE_MJPG, 128, 96, 333333), S_OK);
  EXPECT_EQ(Change(MEDIASUBTYPE_YUY2, 640, 480, 333333), kInvalidMediaType);
  EXPECT_EQ(DescribeCurrentFormat(*pin.Get()), "MJPG 128x96 333333");
}

// --- Errors ---

TEST_F(FormatErrorTest, MissingPermissionIsAccessDenied) {
  AddCamera();
  for (const int error : {EACCES, EPERM}) {
    kernel.Fail(kOpenCall, error);
    EXPECT_THAT(Results(), ElementsAre(E_ACCESSDENIED, E_ACCESSDENIED, E_ACCESSDENIED));
  }
}

TEST_F(FormatErrorTest, TransientErrorFailsTheCallThatMeetsIt) {
  AddCamera();
  kernel.Fail(kOpenCall, EACCES, Persistence::kTransient);
  EXPECT_EQ(SetFormat(MEDIASUBTYPE_YUY2, 64, 48, 333333), E_ACCESSDENIED);
  EXPECT_EQ(SetFormat(MEDIASUBTYPE_YUY2, 64, 48, 333333), S_OK);
}

TEST_F(FormatErrorTest, MissingDeviceIsNotConnected) {
  AddCamera();
  for (const int error : {ENODEV, ENOENT, ENXIO}) {
    kernel.Fail(kOpenCall, error);
    EXPECT_THAT(Results(), ElementsAre(kDeviceGone, kDeviceGone, kDeviceGone));
  }
}

TEST_F(FormatErrorTest, UnpluggedDeviceIsNotConnected) {
  AddCamera();
  ASSERT_EQ(Change(MEDIASUBTYPE_YUY2, 64, 48, 333333), S_OK);
  UnplugLaptopCamera();
  EXPECT_EQ(SetFormat(MEDIASUBTYPE_YUY2, 32, 24, 333333), kDeviceGone);
  EXPECT_EQ(SetFormat(MEDIASUBTYPE_MJPG, 64, 48, 333333), kDeviceGone) << "still";
}

TEST_F(FormatErrorTest, DeviceInUseIsBusy) {
  AddCamera();
  kernel.Fail(kOpenCall, EBUSY);
  EXPECT_THAT(Results(), ElementsAre(kDeviceInUse, kDeviceInUse, kDeviceInUse));
  kernel.FailNothing();
  kernel.Fail(VIDIOC_S_FMT, EBUSY);
  EXPECT_EQ(Change(MEDIASUBTYPE_YUY2, 64, 48, 333333), kDeviceInUse);
  kernel.FailNothing();
  EXPECT_EQ(Change(MEDIASUBTYPE_YUY2, 64, 48, 333333), S_OK);
}

TEST_F(FormatErrorTest, DeviceErrorIsAnIoError) {
  AddCamera();
  kernel.Fail(VIDIOC_S_FMT, EIO);
  EXPECT_EQ(Change(MEDIASUBTYPE_YUY2, 64, 48, 333333), kDeviceIoError);
}

TEST_F(FormatErrorTest, SettingSucceedsAfterTheErrorIsGone) {
  AddCamera();
  kernel.Fail(kOpenCall, EACCES);
  EXPECT_EQ(Results()[2], E_ACCESSDENIED);
  kernel.FailNothing();
  EXPECT_THAT(Results(), ElementsAre(S_OK, S_OK, S_OK));
}

TEST_F(FormatErrorTest, DeviceWithExclusiveAccessIsBusyForASecondHandle) {
  VideoDeviceSettings settings;
  settings.hasPrivileges = true;
  AddCamera(settings);
  ASSERT_EQ(Change(MEDIASUBTYPE_YUY2, 64, 48, 333333), S_OK);
  const ComPtr<IBaseFilter> second = FirstCamera();
  EXPECT_EQ(ChangeFormat(*FindPin(*second.Get(), PINDIR_OUTPUT).Get(), MEDIASUBTYPE_YUY2, 64, 48, 333333),
            kDeviceInUse);
}

}  // namespace
}  // namespace linux_support
