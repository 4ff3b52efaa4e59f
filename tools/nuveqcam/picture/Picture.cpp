#include "picture/Picture.h"

#include <libyuv/convert_argb.h>

#include <new>

#include "cli/Failure.h"

namespace nuveqcam {

void PictureDecoder::DecoderDeleter::operator()(ISVCDecoder* decoder) const {
  decoder->Uninitialize();
  WelsDestroyDecoder(decoder);
}

PictureDecoder::PictureDecoder() {
  ISVCDecoder* created = nullptr;
  WelsCreateDecoder(&created);
  m_decoder.reset(created);
  int logLevel = WELS_LOG_QUIET;
  SDecodingParam parameters{};
  parameters.sVideoProperty.eVideoBsType = VIDEO_BITSTREAM_AVC;
  parameters.eEcActiveIdc = ERROR_CON_DISABLE;
  if (!m_decoder || m_decoder->SetOption(DECODER_OPTION_TRACE_LEVEL, &logLevel) != 0 ||
      m_decoder->Initialize(&parameters) != 0) {
    throw Failure(ExitCode::kUnexpected,
                  "cannot start the H.264 decoder; use 'nuveqcam record' with an .h264 file");
  }
}

bool PictureDecoder::Decode(const Packet& packet) {
  m_planes = {};
  m_info = {};
  DECODING_STATE state = m_decoder->DecodeFrameNoDelay(
      packet.bytes.data(), static_cast<int>(packet.bytes.size()), m_planes.data(), &m_info);
  if (state == dsErrorFree && m_info.iBufferStatus == 0) {
    // The decoder delays one picture in profiles that allow reordering. The stream has no reordered pictures.
    state = m_decoder->FlushFrame(m_planes.data(), &m_info);
  }
  if ((state & dsOutOfMemory) != 0) {
    throw std::bad_alloc();
  }
  return state == dsErrorFree && m_info.iBufferStatus == 1;
}

std::uint32_t PictureDecoder::Width() const {
  return static_cast<std::uint32_t>(m_info.UsrData.sSystemBuffer.iWidth);
}

std::uint32_t PictureDecoder::Height() const {
  return static_cast<std::uint32_t>(m_info.UsrData.sSystemBuffer.iHeight);
}

Picture PictureDecoder::Current() const {
  const SSysMEMBuffer& planes = m_info.UsrData.sSystemBuffer;
  Picture picture{Width(), Height(), std::vector<std::uint8_t>(std::size_t{Width()} * 3 * Height())};
  // "RAW" is R, G, B in memory.
  if (libyuv::I420ToRAW(m_planes[0], planes.iStride[0], m_planes[1], planes.iStride[1], m_planes[2],
                        planes.iStride[1], picture.rgb.data(), planes.iWidth * 3, planes.iWidth,
                        planes.iHeight) != 0) {
    throw Failure(ExitCode::kUnexpected, "cannot convert the picture's colors; use 'nuveqcam record'");
  }
  return picture;
}

}  // namespace nuveqcam
