// The H.264 encoder behind the encoder library's interface.
#pragma once

#include <wels/codec_api.h>

#include <memory>
#include <optional>

#include "MultiMediaEncoder.h"
#include "PictureConverter.h"

namespace encoder {

class H264Encoder final : public VideoEncoder {
 public:
  // A number of slice threads in place of the one that size and PC suggest; 0 for that.
  explicit H264Encoder(int threads = 0) : m_threads(threads) {}

  // False for parameters that are not supported, without memory, and for an encoder that is ready already,
  // which stays as it is.
  bool Initialize(const EncodeParam& param) override;
  void Reserved1() override {}
  void Reserved2() override {}
  void Reserved3() override {}

  // The frame has the size and layout of the parameters; larger buffers are read as far as they have to be.
  // Errors are the encoder's own (CM_RETURN): 2 unknown, 3 no memory, 4 not initialised, 5 a null argument or
  // a frame whose buffer is missing or too small. The packet is empty after an error.
  std::int32_t Encode(VideoFrame* frame, AVEncodePacket* packet) override;

 private:
  struct Destroy {
    void operator()(ISVCEncoder* encoder) const;
  };
  using Handle = std::unique_ptr<ISVCEncoder, Destroy>;

  std::int32_t EncodePlanes(const Planes& planes, AVEncodePacket& packet);

  int m_threads;
  Handle m_encoder;
  std::optional<PictureConverter> m_converter;
  EncodeParam m_param{};
  std::uint64_t m_frameNumber = 0;
};

}  // namespace encoder
