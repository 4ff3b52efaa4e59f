// Pictures: decoded from packets, encoded as PNG.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "recording/PacketQueue.h"

namespace nuveqcam {

struct Picture {
  std::uint32_t width = 0;  // pixels
  std::uint32_t height = 0;
  std::vector<std::uint8_t> rgb;  // 3 bytes per pixel in the order R, G, B; top-down, without padding
};

class PictureDecoder {
 public:
  // Throws Failure (kUnexpected) if there is no H.264 decoder.
  PictureDecoder();
  PictureDecoder(const PictureDecoder&) = delete;
  PictureDecoder& operator=(const PictureDecoder&) = delete;
  ~PictureDecoder();

  // Decodes the next packet. Returns true if it produced a picture, false also for invalid data.
  bool Decode(const Packet& packet);
  // The picture; valid after Decode has returned true, until the next Decode. Colors are converted from
  // BT.601 limited range, which cameras and the encoder library use. Throws Failure (kUnexpected).
  Picture Current() const;

 private:
  class Decoder;
  std::unique_ptr<Decoder> m_decoder;
};

// The picture as a PNG file. Throws Failure (kUnexpected).
std::vector<std::uint8_t> EncodePng(const Picture& picture);

}  // namespace nuveqcam
