// Decodes a stream as its packets come, and reads the number in each picture.
#pragma once

#include <wels/codec_api.h>

#include <cstdint>
#include <memory>

#include "robustness/soak/SoakOptions.h"

// One thread at a time. What is wrong with the stream is thrown as soak::SoakFailure.
class NumberReader {
 public:
  explicit NumberReader(soak::PictureSize size);

  // The stream's next packet. Its pictures carry the numbers from 0 on, each once, in order.
  void Read(const std::uint8_t* data, std::uint32_t length);
  // The end of the stream: every packet has become a picture.
  void Finish();

  std::uint64_t Packets() const { return m_packets; }

 private:
  struct DestroyDecoder {
    void operator()(ISVCDecoder* decoder) const;
  };

  void Take(DECODING_STATE state, std::uint8_t* const* planes, const SBufferInfo& info);
  void Look(const std::uint8_t* luma, const SSysMEMBuffer& memory) const;

  const soak::PictureSize m_size;
  std::unique_ptr<ISVCDecoder, DestroyDecoder> m_decoder;
  std::uint64_t m_packets = 0;
  std::uint64_t m_pictures = 0;
};
