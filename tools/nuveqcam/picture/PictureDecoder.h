// Pictures from packets.
#pragma once

#include <memory>

#include "picture/Picture.h"
#include "recording/PacketQueue.h"

class PictureDecoder {
 public:
  // Throws Failure (kUnexpected) where there is no H.264 decoder.
  PictureDecoder();
  PictureDecoder(const PictureDecoder&) = delete;
  PictureDecoder& operator=(const PictureDecoder&) = delete;
  ~PictureDecoder();

  // Gives it the next packet. True when there is a picture now. What cannot be decoded gives none.
  bool Decode(const Packet& packet);
  // The picture, after Decode has answered true and until the next Decode. Its colours are taken as BT.601 in
  // limited range, which is what cameras and the encoder library use. Throws Failure (kUnexpected).
  Picture Current() const;

 private:
  class Decoder;
  std::unique_ptr<Decoder> m_decoder;
};
