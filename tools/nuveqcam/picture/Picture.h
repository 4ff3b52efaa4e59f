// Pictures decoded from packets.
#pragma once

#include <wels/codec_api.h>

#include <array>
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
  // Throws Failure (kUnexpected) if the decoder cannot be started.
  PictureDecoder();

  // Decodes the next packet. Returns true if it produced a picture, false also for invalid data. Throws
  // std::bad_alloc.
  bool Decode(const Packet& packet);

  // The picture and its size in pixels; valid after Decode has returned true, until the next Decode.
  std::uint32_t Width() const;
  std::uint32_t Height() const;
  // Colors are converted from BT.601 limited range, which cameras and the encoder library use. Throws Failure
  // (kUnexpected).
  Picture Current() const;

 private:
  struct DecoderDeleter {
    void operator()(ISVCDecoder* decoder) const;
  };

  std::unique_ptr<ISVCDecoder, DecoderDeleter> m_decoder;
  std::array<unsigned char*, 3> m_planes{};  // owned by the decoder
  SBufferInfo m_info{};
};

}  // namespace nuveqcam
