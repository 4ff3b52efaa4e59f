// Pictures from packets.
#pragma once

#include "Libav.h"
#include "PacketQueue.h"

class PictureDecoder {
 public:
  // Throws Failure (kUnexpected) where libav has no H.264 decoder.
  PictureDecoder();

  // Gives it the next packet. True when there is a picture now. What cannot be decoded gives none.
  bool Decode(const Packet& packet);
  // The latest picture, valid until the next Decode.
  const AVFrame& Picture() const { return *m_picture; }

 private:
  Libav<AVCodecContext> m_decoder;
  Libav<AVPacket> m_packet;
  Libav<AVFrame> m_picture;
};
