#include "picture/PngWriter.h"

#include <algorithm>

#include "cli/Failure.h"
#include "recording/Libav.h"

namespace {

Libav<AVFrame> FrameOf(const Picture& picture) {
  auto frame = OwnLibav(av_frame_alloc());
  frame->format = AV_PIX_FMT_RGB24;
  frame->width = static_cast<int>(picture.width);
  frame->height = static_cast<int>(picture.height);
  RequireLibav(av_frame_get_buffer(frame.get(), 0), "make room for the picture");
  const std::size_t lineSize = std::size_t{picture.width} * 3;
  const std::uint8_t* from = picture.rgb.data();
  std::uint8_t* to = frame->data[0];
  for (std::uint32_t y = 0; y < picture.height; ++y, from += lineSize, to += frame->linesize[0]) {
    std::copy_n(from, lineSize, to);
  }
  return frame;
}

}  // namespace

std::vector<std::uint8_t> EncodePng(const Picture& picture) {
  const auto frame = FrameOf(picture);
  const AVCodec* const codec = avcodec_find_encoder(AV_CODEC_ID_PNG);
  if (codec == nullptr) {
    throw Failure(ExitCode::kUnexpected, "this system's libavcodec cannot write PNG; use 'nuveqcam record'");
  }
  const auto encoder = OwnLibav(avcodec_alloc_context3(codec));
  encoder->width = frame->width;
  encoder->height = frame->height;
  encoder->pix_fmt = AV_PIX_FMT_RGB24;
  encoder->time_base = {1, 1};
  encoder->thread_count = 1;
  RequireLibav(avcodec_open2(encoder.get(), codec, nullptr), "start the PNG encoder");
  const auto packet = OwnLibav(av_packet_alloc());
  RequireLibav(avcodec_send_frame(encoder.get(), frame.get()), "encode the picture");
  RequireLibav(avcodec_receive_packet(encoder.get(), packet.get()), "encode the picture");
  return {packet->data, packet->data + packet->size};
}
