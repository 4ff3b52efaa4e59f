// VideoEncoder implemented with OpenH264.
//
// Slice threads start in the first call of Encode and end in the destructor. Before the first frame the
// encoder has no threads, so it can be destroyed where threads cannot be joined, such as in DllMain.
#pragma once

#include <wels/codec_api.h>

#include <memory>
#include <optional>

#include "MultiMediaEncoder.h"
#include "encoder/I420Converter.h"

namespace encoder {

class H264Encoder final : public VideoEncoder {
 public:
  // threads: number of slice threads; 0 chooses it by picture size and number of CPU cores.
  explicit H264Encoder(int threads = 0) : m_threads(threads) {}

  // Returns false if the parameters are not supported (IsSupported), if memory is exhausted, or if the
  // encoder is already initialised; it then keeps its state.
  bool Initialize(const EncodeParam& param) override;
  void Reserved1() override {}
  void Reserved2() override {}
  void Reserved3() override {}

  // Encodes one frame of the size and layout given to Initialize. Returns 0 or a CM_RETURN code of OpenH264:
  // 2 unknown error, 3 out of memory, 4 not initialised, 5 null argument, or frame without a buffer or with
  // one that is too small. The packet is empty after an error.
  std::int32_t Encode(VideoFrame* frame, AVEncodePacket* packet) override;

 private:
  struct Destroy {
    void operator()(ISVCEncoder* encoder) const;
  };
  using Handle = std::unique_ptr<ISVCEncoder, Destroy>;

  // Returns null if OpenH264 rejects the settings or is out of memory. Throws std::bad_alloc.
  static Handle MakeEncoder(const EncodeParam& param, const I420Converter& converter, int threads);
  // On the first frame, replaces the encoder with one that has slice threads. If that fails, encoding
  // continues with a single thread.
  void StartSliceThreads();
  std::int32_t EncodePlanes(const Planes& planes, AVEncodePacket& packet);

  int m_threads;
  int m_threadsToStart = 1;  // on the next frame; 1: none
  Handle m_encoder;
  std::optional<I420Converter> m_converter;
  EncodeParam m_param{};
  std::uint64_t m_frameNumber = 0;
};

}  // namespace encoder
