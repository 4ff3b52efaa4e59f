// OpenH264's decoder.
#pragma once

#include <wels/codec_api.h>

#include <cstdint>
#include <memory>
#include <stdexcept>

namespace video {

class H264Decoder {
 public:
  // Throws std::runtime_error if the decoder cannot be created.
  H264Decoder() {
    ISVCDecoder* made = nullptr;
    if (WelsCreateDecoder(&made) != 0) {
      throw std::runtime_error("cannot create the decoder");
    }
    m_decoder.reset(made);
    int quiet = WELS_LOG_QUIET;
    m_decoder->SetOption(DECODER_OPTION_TRACE_LEVEL, &quiet);
    SDecodingParam param{};
    param.sVideoProperty.eVideoBsType = VIDEO_BITSTREAM_AVC;
    param.eEcActiveIdc = ERROR_CON_DISABLE;
    if (m_decoder->Initialize(&param) != 0) {
      throw std::runtime_error("cannot initialize the decoder");
    }
  }

  // Decodes a packet and calls take(state, planes, info), where info says whether there is a picture.
  template <typename Take>
  void Decode(const std::uint8_t* data, std::size_t length, Take&& take) {
    std::uint8_t* planes[3] = {};
    SBufferInfo info{};
    const DECODING_STATE state = m_decoder->DecodeFrameNoDelay(data, static_cast<int>(length), planes, &info);
    take(state, planes, info);
  }

  // Calls take for the last pictures, which the decoder delays in profiles that allow reordering.
  template <typename Take>
  void Flush(Take&& take) {
    int remaining = 0;
    m_decoder->GetOption(DECODER_OPTION_NUM_OF_FRAMES_REMAINING_IN_BUFFER, &remaining);
    for (; remaining > 0; --remaining) {
      std::uint8_t* planes[3] = {};
      SBufferInfo info{};
      const DECODING_STATE state = m_decoder->FlushFrame(planes, &info);
      take(state, planes, info);
    }
  }

 private:
  struct Destroy {
    void operator()(ISVCDecoder* decoder) const {
      decoder->Uninitialize();
      WelsDestroyDecoder(decoder);
    }
  };
  std::unique_ptr<ISVCDecoder, Destroy> m_decoder;
};

}  // namespace video
