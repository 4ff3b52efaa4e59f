#include "picture/Picture.h"

#include <algorithm>
#include <cstring>

#include "cli/Failure.h"
#include "recording/Libav.h"

namespace nuveqcam {
namespace {

LibavPtr<AVFrame> ToRgb(const AVFrame& picture) {
  auto rgb = MakeLibavPtr(av_frame_alloc());
  rgb->format = AV_PIX_FMT_RGB24;
  rgb->width = picture.width;
  rgb->height = picture.height;
  RequireLibav(av_frame_get_buffer(rgb.get(), 0), "allocate the picture");
  constexpr int kQuality = SWS_BICUBIC | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT;
  const auto scaler = MakeLibavPtr(
      sws_getContext(picture.width, picture.height, static_cast<AVPixelFormat>(picture.format), rgb->width,
                     rgb->height, AV_PIX_FMT_RGB24, kQuality, nullptr, nullptr, nullptr));
  constexpr int kLimitedRange = 0;
  constexpr int kFullRange = 1;
  constexpr int kOne = 1 << 16;  // 16.16 fixed-point contrast and saturation
  const int* const bt601 = sws_getCoefficients(SWS_CS_ITU601);
  sws_setColorspaceDetails(scaler.get(), bt601, kLimitedRange, bt601, kFullRange, 0, kOne, kOne);
  sws_scale(scaler.get(), picture.data, picture.linesize, 0, picture.height, rgb->data, rgb->linesize);
  return rgb;
}

LibavPtr<AVFrame> FrameOf(const Picture& picture) {
  auto frame = MakeLibavPtr(av_frame_alloc());
  frame->format = AV_PIX_FMT_RGB24;
  frame->width = static_cast<int>(picture.width);
  frame->height = static_cast<int>(picture.height);
  RequireLibav(av_frame_get_buffer(frame.get(), 0), "allocate the picture");
  const std::size_t lineSize = std::size_t{picture.width} * 3;
  const std::uint8_t* from = picture.rgb.data();
  std::uint8_t* to = frame->data[0];
  for (std::uint32_t y = 0; y < picture.height; ++y, from += lineSize, to += frame->linesize[0]) {
    std::copy_n(from, lineSize, to);
  }
  return frame;
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
    m_context = MakeLibavPtr(avcodec_alloc_context3(codec));
    // Each additional thread would delay output by one picture.
    m_context->thread_count = 1;
    m_context->flags |= AV_CODEC_FLAG_LOW_DELAY;
    RequireLibav(avcodec_open2(m_context.get(), codec, nullptr), "start the decoder");
  }

  bool Decode(const Packet& packet) {
    // A copy, because libav requires padding after the data.
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
  LibavPtr<AVCodecContext> m_context;
  LibavPtr<AVPacket> m_packet = MakeLibavPtr(av_packet_alloc());
  LibavPtr<AVFrame> m_frame = MakeLibavPtr(av_frame_alloc());
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

std::vector<std::uint8_t> EncodePng(const Picture& picture) {
  const auto frame = FrameOf(picture);
  const AVCodec* const codec = avcodec_find_encoder(AV_CODEC_ID_PNG);
  if (codec == nullptr) {
    throw Failure(ExitCode::kUnexpected, "this system's libavcodec cannot write PNG; use 'nuveqcam record'");
  }
  const auto encoder = MakeLibavPtr(avcodec_alloc_context3(codec));
  encoder->width = frame->width;
  encoder->height = frame->height;
  encoder->pix_fmt = AV_PIX_FMT_RGB24;
  encoder->time_base = {1, 1};
  encoder->thread_count = 1;
  RequireLibav(avcodec_open2(encoder.get(), codec, nullptr), "start the PNG encoder");
  const auto packet = MakeLibavPtr(av_packet_alloc());
  RequireLibav(avcodec_send_frame(encoder.get(), frame.get()), "encode the picture");
  RequireLibav(avcodec_receive_packet(encoder.get(), packet.get()), "encode the picture");
  return {packet->data, packet->data + packet->size};
}

}  // namespace nuveqcam
