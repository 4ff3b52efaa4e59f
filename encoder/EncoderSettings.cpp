#include "encoder/EncoderSettings.h"

#include <algorithm>

#include "encoder/FrameLayout.h"

namespace encoder {
namespace {

constexpr std::uint32_t kDefaultFrameRate = 30;
// The rate control of OpenH264 clamps higher rates to this one.
constexpr std::uint32_t kMaxFrameRate = 60;
constexpr std::uint32_t kBitsPerKilobit = 1000;
constexpr std::uint32_t kMaxKilobits = 65535;

// A macroblock is 16x16 pixels.
constexpr std::uint32_t kMaxMacroblocks = 36864;

std::uint32_t Macroblocks(std::uint32_t pixels) { return (pixels + 15) / 16; }

bool IsValidSide(std::uint32_t pixels) { return pixels >= kMinSide && pixels <= kMaxSide; }

// The target in bits per second. Above kMaxFrameRate the rate control budgets each frame as at kMaxFrameRate,
// so the target is scaled down to compensate.
int TargetBitRate(const VideoEncoder::EncodeParam& param, std::uint32_t frameRate) {
  std::uint64_t bits = std::uint64_t{std::max<std::uint32_t>(param.bitRate, 1)} * kBitsPerKilobit;
  if (frameRate > kMaxFrameRate) {
    bits = bits * kMaxFrameRate / frameRate;
  }
  static_assert(std::uint64_t{kMaxKilobits} * kBitsPerKilobit < 0x7FFFFFFF);
  return static_cast<int>(std::max<std::uint64_t>(bits, kBitsPerKilobit));
}

// Signals the colour space that I420Converter produces: BT.601 (525 lines), limited range. See ITU-T H.264,
// annex E.
void SignalColourSpace(SSpatialLayerConfig& layer) {
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
  return IsValidSide(param.width) && IsValidSide(param.height) &&
         Macroblocks(param.width) * Macroblocks(param.height) <= kMaxMacroblocks &&
         param.outWidth == param.width && param.outHeight == param.height && IsKnown(param.colorSpace);
}

int SliceThreads(std::uint32_t width, std::uint32_t height, unsigned cores) {
  constexpr std::uint64_t kMinPixels = std::uint64_t{1280} * 720;
  constexpr unsigned kMinCores = 4;
  return std::uint64_t{width} * height >= kMinPixels && cores >= kMinCores ? 2 : 1;
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
  // The host receives one packet per frame.
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
  SignalColourSpace(layer);
}

}  // namespace encoder
