#include "PictureDecoder.h"

#include <cstring>

#include "Failure.h"

PictureDecoder::PictureDecoder()
    : m_packet(OwnLibav(av_packet_alloc())), m_picture(OwnLibav(av_frame_alloc())) {
  const AVCodec* const codec = avcodec_find_decoder(AV_CODEC_ID_H264);
  if (codec == nullptr) {
    throw Failure(ExitCode::kUnexpected,
                  "this system's libavcodec cannot decode H.264; use 'nuveqcam record'");
  }
  m_decoder = OwnLibav(avcodec_alloc_context3(codec));
  // Several threads would keep as many pictures back.
  m_decoder->thread_count = 1;
  m_decoder->flags |= AV_CODEC_FLAG_LOW_DELAY;
  RequireLibav(avcodec_open2(m_decoder.get(), codec, nullptr), "start the decoder");
}

bool PictureDecoder::Decode(const Packet& packet) {
  // The copy has the padding that libav reads over.
  av_packet_unref(m_packet.get());
  if (av_new_packet(m_packet.get(), static_cast<int>(packet.bytes.size())) < 0) {
    throw std::bad_alloc();
  }
  std::memcpy(m_packet->data, packet.bytes.data(), packet.bytes.size());
  return avcodec_send_packet(m_decoder.get(), m_packet.get()) == 0 &&
         avcodec_receive_frame(m_decoder.get(), m_picture.get()) == 0;
}
