#include "PngWriter.h"

#include "Failure.h"

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

std::vector<std::uint8_t> EncodePng(const AVFrame& picture) {
  const auto rgb = ToRgb(picture);
  const AVCodec* const codec = avcodec_find_encoder(AV_CODEC_ID_PNG);
  if (codec == nullptr) {
    throw Failure(ExitCode::kUnexpected, "this system's libavcodec cannot write PNG; use 'nuveqcam record'");
  }
  const auto encoder = OwnLibav(avcodec_alloc_context3(codec));
  encoder->width = rgb->width;
  encoder->height = rgb->height;
  encoder->pix_fmt = AV_PIX_FMT_RGB24;
  encoder->time_base = {1, 1};
  encoder->thread_count = 1;
  RequireLibav(avcodec_open2(encoder.get(), codec, nullptr), "start the PNG encoder");
  const auto packet = OwnLibav(av_packet_alloc());
  RequireLibav(avcodec_send_frame(encoder.get(), rgb.get()), "encode the picture");
  RequireLibav(avcodec_receive_packet(encoder.get(), packet.get()), "encode the picture");
  return {packet->data, packet->data + packet->size};
}
