#include "picture/PictureDecoder.h"

#include <algorithm>
#include <cstring>

#include "cli/Failure.h"
#include "recording/Libav.h"

namespace {

Libav<AVFrame> ToRgb(const AVFrame& picture) {
  auto rgb = OwnLibav(av_frame_alloc());
  rgb->format = AV_PIX_FMT_RGB24;
  rgb->width = picture.width;
  rgb->height = picture.height;
  RequireLibav(av_frame_get_buffer(rgb.get(), 0), "make room for the picture");
  constexpr int kQuality = SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT;
  const auto scaler = OwnLibav(
      sws_getContext(picture.width, picture.height, static_cast<AVPixelFormat>(picture.format), rgb->width,
                     rgb->height, AV_PIX_FMT_RGB24, kQuality, nullptr, nullptr, nullptr));
  constexpr int kLimitedRange = 0;
  constexpr int kFullRange = 1;
  constexpr int kOne = 1 << 16;  // contrast and saturation are fixed-point numbers
  const int* const bt601 = sws_getCoefficients(SWS_CS_ITU601);
  sws_setColorspaceDetails(scaler.get(), bt601, kLimitedRange, bt601, kFullRange, 0, kOne, kOne);
  sws_scale(scaler.get(), picture.data, picture.linesize, 0, picture.height, rgb->data, rgb->linesize);
  return rgb;
}

}  // namespace

class PictureDecoder::Decoder {
 public:
  Decoder() {
    const AVCodec* const codec = avcodec_find_decoder(AV_CODEC_ID_H264);
    if (codec == nullptr) {
      throw Failure(ExitCode::kUnexpected,
                    "this system's libavcodec cannot decode H.264; use 'nuveqcam record'");
    }
    m_context = OwnLibav(avcodec_alloc_context3(codec));
    // Several threads would keep as many pictures back.
    m_context->thread_count = 1;
    m_context->flags |= AV_CODEC_FLAG_LOW_DELAY;
    RequireLibav(avcodec_open2(m_context.get(), codec, nullptr), "start the decoder");
  }

  bool Decode(const Packet& packet) {
    // The copy has the padding that libav reads over.
    av_packet_unref(m_packet.get());
    if (av_new_packet(m_packet.get(), static_cast<int>(packet.bytes.size())) < 0) {
      throw std::bad_alloc();
    }
    std::memcpy(m_packet->data, packet.bytes.data(), packet.bytes.size());
    return avcodec_send_packet(m_context.get(), m_packet.get()) == 0 &&
           avcodec_receive_frame(m_context.get(), m_frame.get()) == 0;
  }

  const AVFrame& Frame() const { return *m_frame; }

 private:
  Libav<AVCodecContext> m_context;
  Libav<AVPacket> m_packet = OwnLibav(av_packet_alloc());
  Libav<AVFrame> m_frame = OwnLibav(av_frame_alloc());
};

PictureDecoder::PictureDecoder() : m_decoder(std::make_unique<Decoder>()) {}

PictureDecoder::~PictureDecoder() = default;

bool PictureDecoder::Decode(const Packet& packet) { return m_decoder->Decode(packet); }

Picture PictureDecoder::Current() const {
  const auto rgb = ToRgb(m_decoder->Frame());
  Picture picture{static_cast<std::uint32_t>(rgb->width), static_cast<std::uint32_t>(rgb->height), {}};
  const std::size_t lineSize = std::size_t{picture.width} * 3;
  picture.rgb.resize(lineSize * picture.height);
  std::uint8_t* to = picture.rgb.data();
  const std::uint8_t* from = rgb->data[0];
  for (std::uint32_t y = 0; y < picture.height; ++y, to += lineSize, from += rgb->linesize[0]) {
    std::copy_n(from, lineSize, to);
  }
  return picture;
}
