#include "encoder/H264Encoder.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <thread>
#include <utility>

#include "encoder/EncoderSettings.h"
#include "encoder/FrameLayout.h"
#include "encoder/PacketMemory.h"

namespace encoder {
namespace {

// Total size of the layer's NAL units, which are contiguous in memory.
std::uint32_t LayerBytes(const SLayerBSInfo& layer) {
  std::uint32_t bytes = 0;
  for (int i = 0; i < layer.iNalCount; ++i) {
    bytes += static_cast<std::uint32_t>(layer.pNalLengthInByte[i]);
  }
  return bytes;
}

std::int32_t CopyAccessUnit(const SFrameBSInfo& unit, AVEncodePacket& packet) {
  std::uint32_t bytes = 0;
  for (int i = 0; i < unit.iLayerNum; ++i) {
    bytes += LayerBytes(unit.sLayerInfo[i]);
  }
  if (bytes == 0) {
    return cmUnknownReason;
  }
  if (!Reserve(packet, bytes)) {
    return cmMallocMemeError;
  }
  for (int i = 0; i < unit.iLayerNum; ++i) {
    const std::uint32_t length = LayerBytes(unit.sLayerInfo[i]);
    std::memcpy(packet.data + packet.length, unit.sLayerInfo[i].pBsBuf, length);
    packet.length += length;
  }
  return cmResultSuccess;
}

}  // namespace

void H264Encoder::Destroy::operator()(ISVCEncoder* encoder) const {
  encoder->Uninitialize();
  WelsDestroySVCEncoder(encoder);
}

H264Encoder::Handle H264Encoder::MakeEncoder(const EncodeParam& param, const I420Converter& converter,
                                             int threads) {
  ISVCEncoder* created = nullptr;
  if (WelsCreateSVCEncoder(&created) != 0 || created == nullptr) {
    return nullptr;
  }
  Handle handle(created);
  // Must come first: by default OpenH264 logs to the host's standard error.
  int quiet = WELS_LOG_QUIET;
  handle->SetOption(ENCODER_OPTION_TRACE_LEVEL, &quiet);
  SEncParamExt settings{};
  if (handle->GetDefaultParams(&settings) != cmResultSuccess) {
    return nullptr;
  }
  ApplySettings(param, converter.EvenWidth(), converter.EvenHeight(), threads, settings);
  return handle->InitializeExt(&settings) == cmResultSuccess ? std::move(handle) : nullptr;
}

bool H264Encoder::Initialize(const EncodeParam& param) try {
  if (m_encoder != nullptr || !IsSupported(param)) {
    return false;
  }
  I420Converter converter(param.width, param.height, param.colorSpace);
  Handle handle = MakeEncoder(param, converter, 1);
  if (handle == nullptr) {
    return false;
  }
  m_threadsToStart = m_threads != 0
                         ? m_threads
                         : SliceThreads(param.width, param.height, std::thread::hardware_concurrency());
  m_converter.emplace(std::move(converter));
  m_param = param;
  m_encoder = std::move(handle);
  return true;
} catch (const std::bad_alloc&) {
  return false;
}

void H264Encoder::StartSliceThreads() try {
  const int threads = std::exchange(m_threadsToStart, 1);
  if (threads == 1) {
    return;
  }
  // OpenH264 starts threads only during initialisation, so a second encoder replaces the first one.
  if (Handle threaded = MakeEncoder(m_param, *m_converter, threads); threaded != nullptr) {
    m_encoder = std::move(threaded);
  }
} catch (const std::bad_alloc&) {
  return;  // encoding continues with a single thread
}

std::int32_t H264Encoder::Encode(VideoFrame* frame, AVEncodePacket* packet) {
  if (packet != nullptr) {
    packet->length = 0;
  }
  if (m_encoder == nullptr) {
    return cmInitExpected;
  }
  if (frame == nullptr || packet == nullptr || frame->data == nullptr ||
      frame->size < FrameBytes(m_param.width, m_param.height, m_param.colorSpace)) {
    return cmUnsupportedData;
  }
  StartSliceThreads();
  return EncodePlanes(m_converter->Convert(frame->data), *packet);
}

std::int32_t H264Encoder::EncodePlanes(const Planes& planes, AVEncodePacket& packet) {
  SSourcePicture picture{};
  picture.iColorFormat = videoFormatI420;
  picture.iPicWidth = static_cast<int>(m_converter->EvenWidth());
  picture.iPicHeight = static_cast<int>(m_converter->EvenHeight());
  std::copy(planes.data.begin(), planes.data.end(), picture.pData);
  std::copy(planes.stride.begin(), planes.stride.end(), picture.iStride);
  // Timestamps in milliseconds, at a constant frame rate.
  constexpr std::uint64_t kMillisecondsPerSecond = 1000;
  picture.uiTimeStamp =
      static_cast<long long>(m_frameNumber++ * kMillisecondsPerSecond / EffectiveFrameRate(m_param));
  SFrameBSInfo unit{};
  int error = m_encoder->EncodeFrame(&picture, &unit);
  if (error == cmResultSuccess) {
    error = CopyAccessUnit(unit, packet);
  }
  if (error != cmResultSuccess) {
    // The host does not receive this picture, so later pictures must not reference it.
    m_encoder->ForceIntraFrame(true);
  }
  return error;
}

}  // namespace encoder
