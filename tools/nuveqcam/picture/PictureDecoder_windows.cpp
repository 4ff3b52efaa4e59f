#include "picture/PictureDecoder.h"

#include <wels/codec_api.h>

#include <libyuv/convert_argb.h>

#include <array>

#include "cli/Failure.h"

namespace {

struct DestroyDecoder {
  void operator()(ISVCDecoder* decoder) const { WelsDestroyDecoder(decoder); }
};
using OwnDecoder = std::unique_ptr<ISVCDecoder, DestroyDecoder>;

OwnDecoder StartDecoder() {
  ISVCDecoder* created = nullptr;
  WelsCreateDecoder(&created);
  OwnDecoder decoder(created);
  int silence = WELS_LOG_QUIET;
  SDecodingParam parameters{};
  parameters.sVideoProperty.eVideoBsType = VIDEO_BITSTREAM_AVC;
  parameters.eEcActiveIdc = ERROR_CON_DISABLE;
  if (!decoder || decoder->SetOption(DECODER_OPTION_TRACE_LEVEL, &silence) != 0 ||
      decoder->Initialize(&parameters) != 0) {
    throw Failure(ExitCode::kUnexpected, "cannot start the decoder; use 'nuveqcam record'");
  }
  return decoder;
}

}  // namespace

class PictureDecoder::Decoder {
 public:
  Decoder(const Decoder&) = delete;
  Decoder& operator=(const Decoder&) = delete;
  Decoder() = default;
  ~Decoder() { m_decoder->Uninitialize(); }

  bool Decode(const Packet& packet) {
    m_planes = {};
    m_info = {};
    DECODING_STATE state = m_decoder->DecodeFrameNoDelay(
        packet.bytes.data(), static_cast<int>(packet.bytes.size()), m_planes.data(), &m_info);
    if (state == dsErrorFree && m_info.iBufferStatus == 0) {
      // Pictures may change their order in the profiles above the lowest, so it keeps one back. These do not.
      state = m_decoder->FlushFrame(m_planes.data(), &m_info);
    }
    return state == dsErrorFree && m_info.iBufferStatus == 1;
  }

  Picture Current() const {
    const SSysMEMBuffer& plane = m_info.UsrData.sSystemBuffer;
    Picture picture{static_cast<std::uint32_t>(plane.iWidth), static_cast<std::uint32_t>(plane.iHeight), {}};
    const int lineSize = plane.iWidth * 3;
    picture.rgb.resize(std::size_t{picture.width} * 3 * picture.height);
    // "RAW" is what has red first; the colours are those of BT.601 in limited range.
    if (libyuv::I420ToRAW(m_planes[0], plane.iStride[0], m_planes[1], plane.iStride[1], m_planes[2],
                          plane.iStride[1], picture.rgb.data(), lineSize, plane.iWidth, plane.iHeight) != 0) {
      throw Failure(ExitCode::kUnexpected, "cannot convert the picture's colours; use 'nuveqcam record'");
    }
    return picture;
  }

 private:
  OwnDecoder m_decoder = StartDecoder();
  std::array<unsigned char*, 3> m_planes{};
  SBufferInfo m_info{};
};

PictureDecoder::PictureDecoder() : m_decoder(std::make_unique<Decoder>()) {}

PictureDecoder::~PictureDecoder() = default;

bool PictureDecoder::Decode(const Packet& packet) { return m_decoder->Decode(packet); }

Picture PictureDecoder::Current() const { return m_decoder->Current(); }
