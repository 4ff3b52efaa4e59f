// The H.264 encoder behind the encoder library's interface.
//
// An encoder that has not encoded a frame yet has no threads: slice threads start with the first frame, on
// the thread that encodes it, and end when the encoder is released. Until then an encoder can be released
// where no thread can be joined, as on Windows while a DLL is being unloaded.
#pragma once

#include <wels/codec_api.h>

#include <memory>
#include <optional>

#include "MultiMediaEncoder.h"
#include "encoder/I420Converter.h"

namespace encoder {

class H264Encoder final : public VideoEncoder {
 public:
  // threads: the number of slice threads; 0 selects it by picture size and number of cores.
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

  // Null when OpenH264 refuses the settings or has no memory. May throw std::bad_alloc.
  static Handle MakeEncoder(const EncodeParam& param, const PictureConverter& converter, int threads);
  // Replaces the encoder by one with slice threads if they are due. If they cannot be started, encoding goes
  // on without them.
  void StartSliceThreads();
  std::int32_t EncodePlanes(const Planes& planes, AVEncodePacket& packet);

  int m_threads;
  int m_threadsToStart = 1;  // with the next frame; 1: none
  Handle m_encoder;
  std::optional<PictureConverter> m_converter;
  EncodeParam m_param{};
  std::uint64_t m_frameNumber = 0;
};

}  // namespace encoder
