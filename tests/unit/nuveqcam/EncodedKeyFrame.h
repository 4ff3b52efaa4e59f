// Pictures that OpenH264 has encoded.
#pragma once

#include <gtest/gtest.h>
#include <wels/codec_api.h>

#include <cstddef>
#include <memory>
#include <vector>

#include "recording/PacketQueue.h"

namespace nuveqcam {

// BT.601 limited range.
struct Color {
  int y;
  int u;
  int v;
};
inline constexpr Color kRed{81, 90, 240};
inline constexpr Color kBlue{41, 240, 110};

struct EncoderDeleter {
  void operator()(ISVCEncoder* encoder) const {
    encoder->Uninitialize();
    WelsDestroySVCEncoder(encoder);
  }
};

// A stream of pictures with a red left half and a blue right half, with a key frame at every multiple of the
// interval. The size is even.
inline std::vector<Packet> EncodePictures(int width, int height, int count, int keyFrameInterval) {
  ISVCEncoder* created = nullptr;
  EXPECT_EQ(WelsCreateSVCEncoder(&created), 0);
  const std::unique_ptr<ISVCEncoder, EncoderDeleter> encoder(created);
  SEncParamBase parameters{};
  parameters.iUsageType = CAMERA_VIDEO_REAL_TIME;
  parameters.iPicWidth = width;
  parameters.iPicHeight = height;
  parameters.iTargetBitrate = 5'000'000;
  parameters.fMaxFrameRate = 30;
  EXPECT_EQ(encoder->Initialize(&parameters), 0);

  const auto columns = static_cast<std::size_t>(width);
  const auto lines = static_cast<std::size_t>(height);
  const auto plane = [](std::size_t planeWidth, std::size_t planeHeight, int left, int right) {
    std::vector<unsigned char> bytes(planeWidth * planeHeight);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      bytes[i] = static_cast<unsigned char>(i % planeWidth < planeWidth / 2 ? left : right);
    }
    return bytes;
  };
  std::vector<unsigned char> y = plane(columns, lines, kRed.y, kBlue.y);
  std::vector<unsigned char> u = plane(columns / 2, lines / 2, kRed.u, kBlue.u);
  std::vector<unsigned char> v = plane(columns / 2, lines / 2, kRed.v, kBlue.v);
  SSourcePicture source{};
  source.iColorFormat = videoFormatI420;
  source.iPicWidth = width;
  source.iPicHeight = height;
  source.iStride[0] = width;
  source.iStride[1] = source.iStride[2] = width / 2;
  source.pData[0] = y.data();
  source.pData[1] = u.data();
  source.pData[2] = v.data();
  std::vector<Packet> packets;
  for (int i = 0; i < count; ++i) {
    if (i % keyFrameInterval == 0) {
      encoder->ForceIntraFrame(true);
    }
    constexpr long long kInterval = 33;
    source.uiTimeStamp = i * kInterval;
    SFrameBSInfo info{};
    EXPECT_EQ(encoder->EncodeFrame(&source, &info), 0);
    // The layers are contiguous in memory.
    const unsigned char* const begin = info.sLayerInfo[0].pBsBuf;
    packets.push_back({{begin, begin + info.iFrameSizeInBytes}, Clock::now()});
  }
  return packets;
}

inline Packet EncodeKeyFrame(int width, int height) { return EncodePictures(width, height, 1, 1).front(); }

}  // namespace nuveqcam
