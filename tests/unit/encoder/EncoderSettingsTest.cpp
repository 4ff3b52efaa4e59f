// The settings that OpenH264 is initialised with, and the pictures that are accepted.
#include "encoder/EncoderSettings.h"

#include <gtest/gtest.h>

#include <cstring>

#include "encoder/FrameLayout.h"
#include "support/video/DecodedStream.h"

namespace {

using video::Param;

// Applies the settings to a structure of which every byte has another value.
SEncParamExt Apply(const VideoEncoder::EncodeParam& param, int threads = 1, int before = 1) {
  SEncParamExt settings;
  std::memset(&settings, before, sizeof(settings));
  encoder::ApplySettings(param, param.width & ~1U, param.height & ~1U, threads, settings);
  return settings;
}

int TargetBitRate(std::uint32_t frameRate, std::uint16_t kilobits) {
  return Apply(Param(640, 480, ColorSpace::kI420, frameRate, 150, kilobits)).iTargetBitrate;
}

class EncoderSettings : public ::testing::TestWithParam<int> {};

TEST_P(EncoderSettings, FavourSpeedAndLatencyAtHighProfile) {
  const SEncParamExt settings = Apply(Param(641, 479, ColorSpace::kYuy2, 25, 125, 1536), 1, GetParam());
  EXPECT_EQ(settings.iUsageType, CAMERA_VIDEO_REAL_TIME);
  EXPECT_EQ(settings.iPicWidth, 640);
  EXPECT_EQ(settings.iPicHeight, 478);
  EXPECT_EQ(settings.fMaxFrameRate, 25.0F);
  EXPECT_EQ(settings.iRCMode, RC_QUALITY_MODE);
  EXPECT_EQ(settings.iTargetBitrate, 1'536'000);
  EXPECT_EQ(settings.iMaxBitrate, UNSPECIFIED_BIT_RATE);
  EXPECT_TRUE(settings.bFixRCOverShoot);
  EXPECT_FALSE(settings.bEnableFrameSkip);
  EXPECT_EQ(settings.uiIntraPeriod, 125U);
  EXPECT_EQ(settings.eSpsPpsIdStrategy, CONSTANT_ID);
  EXPECT_FALSE(settings.bEnableSceneChangeDetect);
  EXPECT_EQ(settings.iTemporalLayerNum, 1);
  EXPECT_EQ(settings.iSpatialLayerNum, 1);
  EXPECT_EQ(settings.iNumRefFrame, 1);
  EXPECT_EQ(settings.iComplexityMode, LOW_COMPLEXITY);
  EXPECT_EQ(settings.iEntropyCodingModeFlag, 1);
  EXPECT_EQ(settings.iLoopFilterDisableIdc, 0);
  EXPECT_FALSE(settings.bEnableDenoise);
  EXPECT_FALSE(settings.bEnableBackgroundDetection);
  EXPECT_FALSE(settings.bEnableAdaptiveQuant);
  EXPECT_FALSE(settings.bUseLoadBalancing);

  const SSpatialLayerConfig& layer = settings.sSpatialLayers[0];
  EXPECT_EQ(layer.iVideoWidth, 640);
  EXPECT_EQ(layer.iVideoHeight, 478);
  EXPECT_EQ(layer.fFrameRate, 25.0F);
  EXPECT_EQ(layer.iSpatialBitrate, 1'536'000);
  EXPECT_EQ(layer.iMaxSpatialBitrate, UNSPECIFIED_BIT_RATE);
  EXPECT_EQ(layer.uiProfileIdc, PRO_HIGH);
  EXPECT_EQ(layer.uiLevelIdc, LEVEL_UNKNOWN);
}

TEST_P(EncoderSettings, SignalLimitedRangeBt601) {
  const SEncParamExt settings = Apply(Param(640, 480, ColorSpace::kYuy2), 1, GetParam());
  const SSpatialLayerConfig& layer = settings.sSpatialLayers[0];
  EXPECT_TRUE(layer.bVideoSignalTypePresent);
  EXPECT_EQ(layer.uiVideoFormat, VF_UNDEF);
  EXPECT_FALSE(layer.bFullRange);
  EXPECT_TRUE(layer.bColorDescriptionPresent);
  EXPECT_EQ(layer.uiColorPrimaries, CP_SMPTE170M);
  EXPECT_EQ(layer.uiTransferCharacteristics, TRC_SMPTE170M);
  EXPECT_EQ(layer.uiColorMatrix, CM_SMPTE170M);
}

// The bytes before: both values of a switch.
INSTANTIATE_TEST_SUITE_P(Over, EncoderSettings, ::testing::Values(0, 1));

TEST(SliceSettings, HaveOneSlicePerThread) {
  for (const int threads : {1, 2, 4}) {
    const SEncParamExt settings = Apply(Param(640, 480, ColorSpace::kYuy2), threads);
    EXPECT_EQ(settings.iMultipleThreadIdc, threads);
    const SSliceArgument& slices = settings.sSpatialLayers[0].sSliceArgument;
    EXPECT_EQ(slices.uiSliceMode, threads == 1 ? SM_SINGLE_SLICE : SM_FIXEDSLCNUM_SLICE);
    EXPECT_EQ(slices.uiSliceNum, static_cast<unsigned>(threads));
  }
}

TEST(RateSettings, FrameRateZeroMeansThirty) {
  EXPECT_EQ(Apply(Param(640, 480, ColorSpace::kYuy2, 0)).fMaxFrameRate, 30.0F);
}

TEST(RateSettings, BitRateIsScaledToTheFrameRatesThatTheRateControlSupports) {
  EXPECT_EQ(TargetBitRate(30, 1536), 1'536'000);
  EXPECT_EQ(TargetBitRate(60, 1536), 1'536'000);
  EXPECT_EQ(TargetBitRate(61, 1536), 1'510'819);
  EXPECT_EQ(TargetBitRate(120, 1536), 768'000);
  EXPECT_EQ(TargetBitRate(30, 65535), 65'535'000);
  EXPECT_EQ(Apply(Param(640, 480, ColorSpace::kYuy2, 60)).fMaxFrameRate, 60.0F);
  EXPECT_EQ(Apply(Param(640, 480, ColorSpace::kYuy2, 61)).fMaxFrameRate, 60.0F);
}

TEST(RateSettings, BitRateIsAtLeastOneKilobitPerSecond) {
  EXPECT_EQ(TargetBitRate(30, 0), 1000);
  EXPECT_EQ(TargetBitRate(30, 1), 1000);
  EXPECT_EQ(TargetBitRate(30, 2), 2000);
  EXPECT_EQ(TargetBitRate(120, 1), 1000);
  EXPECT_EQ(TargetBitRate(0xFFFFFFFF, 65535), 1000);
}

TEST(SupportedSizes, PicturesHaveAtMostTheMacroblocksOfTheHighestLevel) {
  const auto isSupported = [](std::uint32_t width, std::uint32_t height) {
    return encoder::IsSupported(Param(width, height, ColorSpace::kYuy2));
  };
  EXPECT_TRUE(isSupported(4096, 2304));
  EXPECT_FALSE(isSupported(4096, 2305));
  EXPECT_FALSE(isSupported(4081, 2305));
  EXPECT_TRUE(isSupported(2304, 4096));
  EXPECT_FALSE(isSupported(2305, 4096));
}

TEST(FrameLayout, SidesOfAFrameAreLimited) {
  constexpr std::uint32_t kMaxSide = 1U << 20;
  for (const ColorSpace layout : {ColorSpace::kI420, ColorSpace::kYuy2, ColorSpace::kArgb32}) {
    EXPECT_GT(encoder::FrameBytes(kMaxSide, 1, layout), 0U);
    EXPECT_GT(encoder::FrameBytes(1, kMaxSide, layout), 0U);
    EXPECT_EQ(encoder::FrameBytes(kMaxSide + 1, 1, layout), 0U);
    EXPECT_EQ(encoder::FrameBytes(1, kMaxSide + 1, layout), 0U);
    EXPECT_EQ(encoder::FrameBytes(0, 1, layout), 0U);
    EXPECT_EQ(encoder::FrameBytes(1, 0, layout), 0U);
  }
}

}  // namespace
