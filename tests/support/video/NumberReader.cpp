#include "support/video/NumberReader.h"

#include <array>
#include <string>

#include "simulated/NumberedPicture.h"

namespace video {
namespace {

using Planes = std::array<std::uint8_t*, 3>;

std::string NumberText(std::optional<std::uint32_t> number) {
  return number ? "number " + std::to_string(*number) : "no number";
}

}  // namespace

void NumberReader::DestroyDecoder::operator()(ISVCDecoder* decoder) const {
  decoder->Uninitialize();
  WelsDestroyDecoder(decoder);
}

NumberReader::NumberReader(PictureSize size) : m_size(size) {
  ISVCDecoder* made = nullptr;
  if (WelsCreateDecoder(&made) != 0) {
    throw StreamError("cannot create the decoder");
  }
  m_decoder.reset(made);
  int quiet = WELS_LOG_QUIET;
  m_decoder->SetOption(DECODER_OPTION_TRACE_LEVEL, &quiet);
  SDecodingParam param{};
  param.sVideoProperty.eVideoBsType = VIDEO_BITSTREAM_AVC;
  param.eEcActiveIdc = ERROR_CON_DISABLE;
  if (m_decoder->Initialize(&param) != 0) {
    throw StreamError("cannot initialize the decoder");
  }
}

void NumberReader::Read(const std::uint8_t* data, std::uint32_t length) {
  ++m_packets;
  Planes planes{};
  SBufferInfo info{};
  const DECODING_STATE state =
      m_decoder->DecodeFrameNoDelay(data, static_cast<int>(length), planes.data(), &info);
  Take(state, planes.data(), info);
}

void NumberReader::Finish() {
  // In profiles that allow reordering the decoder delays the last pictures.
  int remaining = 0;
  m_decoder->GetOption(DECODER_OPTION_NUM_OF_FRAMES_REMAINING_IN_BUFFER, &remaining);
  for (; remaining > 0; --remaining) {
    Planes planes{};
    SBufferInfo info{};
    const DECODING_STATE state = m_decoder->FlushFrame(planes.data(), &info);
    Take(state, planes.data(), info);
  }
  if (m_pictures != m_packets) {
    throw StreamError(std::to_string(m_packets) + " packets were decoded to " + std::to_string(m_pictures) +
                      " pictures");
  }
}

void NumberReader::Take(DECODING_STATE state, std::uint8_t* const* planes, const SBufferInfo& info) {
  if (state != dsErrorFree) {
    throw StreamError("decoding packet " + std::to_string(m_packets - 1) + " failed with state " +
                      std::to_string(state));
  }
  if (info.iBufferStatus == 1) {
    CheckPicture(planes[0], info.UsrData.sSystemBuffer);
    ++m_pictures;
  }
}

void NumberReader::CheckPicture(const std::uint8_t* luma, const SSysMEMBuffer& memory) const {
  const auto width = static_cast<std::uint32_t>(memory.iWidth);
  const auto height = static_cast<std::uint32_t>(memory.iHeight);
  if (width != m_size.width || height != m_size.height) {
    throw StreamError("picture " + std::to_string(m_pictures) + " is " + std::to_string(width) + "x" +
                      std::to_string(height));
  }
  const auto stride = static_cast<std::size_t>(memory.iStride[0]);
  const std::optional<std::uint32_t> number = simulated::ReadFrameNumber(luma, stride, width, height);
  if (number != static_cast<std::uint32_t>(m_pictures & simulated::kFrameNumberMask)) {
    throw StreamError("picture " + std::to_string(m_pictures) + " shows " + NumberText(number));
  }
}

}  // namespace video
