#include "encoder/EncoderSettings.h"

#include <algorithm>

#include "encoder/FrameLayout.h"

namespace encoder {
namespace {

constexpr std::uint32_t kDefaultFrameRate = 30;
// The rate control does not reckon with more.
constexpr std::uint32_t kMaxFrameRate = 60;
constexpr std::uint32_t kBitsPerKilobit = 1000;
constexpr std::uint32_t kMaxKilobits = 65535;

// Squares of 16 pixels a side.
constexpr std::uint32_t kMaxMacroblocks = 36864;

std::uint32_t Macroblocks(std::uint32_t pixels) { return (pixels + 15) / 16; }

bool IsSide(std::uint32_t pixels) { return pixels >= kMinSide && pixels <= kMaxSide; }

// Bits per second for the rate control: above its greatest frame rate it spends per frame what it would at
// that.
int TargetBitRate(const VideoEncoder::EncodeParam& param, std::uint32_t frameRate) {
  std::uint64_t bits = std::uint64_t{std::max<std::uint32_t>(param.bitRate, 1)} * kBitsPerKilobit;
  if (frameRate > kMaxFrameRate) {
    bits = bits * kMaxFrameRate / frameRate;
  }
  static_assert(std::uint64_t{kMaxKilobits} * kBitsPerKilobit < 0x7FFFFFFF);
  return static_cast<int>(std::max<std::uint64_t>(bits, kBitsPerKilobit));
}

// ITU-R BT.601 with 525 lines, limited range: what the conversion makes, said in the stream (ITU-T H.264
// annex E).
void DescribeColours(SSpatialLayerConfig& layer) {
  layer.bVideoSignalTypePresent = true;
  layer.uiVideoFormat = VF_UNDEF;
  layer.bFullRange = false;
  layer.bColorDescriptionPresent = true;
  layer.uiColorPrimaries = CP_SMPTE170M;
  layer.uiTransferCharacteristics = TRC_SMPTE170M;
  layer.uiColorMatrix = CM_SMPTE170M;
}

}  // namespace

std::uint32_t EffectiveFrameRate(const VideoEncoder::EncodeParam& param) {
  return param.frameRate == 0 ? kDefaultFrameRate : param.frameRate;
}

bool IsSupported(const VideoEncoder::EncodeParam& param) {
  return IsSide(param.width) && IsSide(param.height) &&
         Macroblocks(param.width) * Macroblocks(param.height) <= kMaxMacroblocks &&
         param.outWidth == param.width && param.outHeight == param.height && IsKnown(param.colorSpace);
}

int SliceThreads(std::uint32_t width, std::uint32_t height, unsigned cores) {
  constexpr std::uint64_t kLargePicture = std::uint64_t{1280} * 720;
  constexpr unsigned kEnoughCores = 4;
  return std::uint64_t{width} * height >= kLargePicture && cores >= kEnoughCores ? 2 : 1;
}

void ApplySettings(const VideoEncoder::EncodeParam& param, std::uint32_t evenWidth, std::uint32_t evenHeight,
                   int threads, SEncParamExt& settings) {
  const std::uint32_t frameRate = EffectiveFrameRate(param);
  settings.iUsageType = CAMERA_VIDEO_REAL_TIME;
  settings.iPicWidth = static_cast<int>(evenWidth);
  settings.iPicHeight = static_cast<int>(evenHeight);
  settings.fMaxFrameRate = static_cast<float>(std::min(frameRate, kMaxFrameRate));
  settings.iTargetBitrate = TargetBitRate(param, frameRate);
  settings.iMaxBitrate = UNSPECIFIED_BIT_RATE;
  settings.iRCMode = RC_QUALITY_MODE;
  settings.bFixRCOverShoot = true;
  // Every frame becomes a packet.
  settings.bEnableFrameSkip = false;
  settings.uiIntraPeriod = param.keyFrameInterval;
  settings.eSpsPpsIdStrategy = CONSTANT_ID;
  settings.bEnableSceneChangeDetect = false;
  settings.iTemporalLayerNum = 1;
  settings.iSpatialLayerNum = 1;
  settings.iNumRefFrame = 1;
  settings.iComplexityMode = LOW_COMPLEXITY;
  settings.iEntropyCodingModeFlag = 1;
  settings.iLoopFilterDisableIdc = 0;
  settings.bEnableDenoise = false;
  settings.bEnableBackgroundDetection = false;
  settings.bEnableAdaptiveQuant = false;
  settings.iMultipleThreadIdc = static_cast<unsigned short>(threads);
  settings.bUseLoadBalancing = false;

  SSpatialLayerConfig& layer = settings.sSpatialLayers[0];
  layer.iVideoWidth = settings.iPicWidth;
  layer.iVideoHeight = settings.iPicHeight;
  layer.fFrameRate = settings.fMaxFrameRate;
  layer.iSpatialBitrate = settings.iTargetBitrate;
  layer.iMaxSpatialBitrate = UNSPECIFIED_BIT_RATE;
  layer.uiProfileIdc = PRO_HIGH;
  layer.uiLevelIdc = LEVEL_UNKNOWN;
  layer.sSliceArgument.uiSliceMode = threads > 1 ? SM_FIXEDSLCNUM_SLICE : SM_SINGLE_SLICE;
  layer.sSliceArgument.uiSliceNum = static_cast<unsigned>(threads);
  DescribeColours(layer);
}

}  // namespace encoder
