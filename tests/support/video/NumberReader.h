// Decodes a stream packet by packet and checks the frame number in each picture.
#pragma once

#include <cstdint>
#include <stdexcept>

#include "support/video/H264Decoder.h"

namespace video {

struct PictureSize {
  std::uint32_t width = 0;  // pixels
  std::uint32_t height = 0;
};

// An error in a stream; what() is human-readable.
class StreamError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Not thread-safe. Throws StreamError for an error in the stream.
class NumberReader {
 public:
  explicit NumberReader(PictureSize size);

  // Decodes the next packet. The pictures must have the numbers 0, 1, 2 and so on.
  void Read(const std::uint8_t* data, std::uint32_t length);
  // Ends the stream. Every packet must have produced a picture.
  void Finish();

  std::uint64_t Packets() const { return m_packets; }

 private:
  void Take(DECODING_STATE state, std::uint8_t* const* planes, const SBufferInfo& info);
  void CheckPicture(const std::uint8_t* luma, const SSysMEMBuffer& memory) const;

  const PictureSize m_size;
  H264Decoder m_decoder;
  std::uint64_t m_packets = 0;
  std::uint64_t m_pictures = 0;
};

}  // namespace video
