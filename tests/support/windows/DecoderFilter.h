// Decodes MJPG to bottom-up ARGB32. The graph inserts it into connections that need it.
#pragma once

#include <turbojpeg.h>

#include <memory>

#include "support/windows/Pin.h"

namespace fixtures {

class DecoderFilter;

class DecoderInputPin : public InputPin {
 public:
  explicit DecoderInputPin(DecoderFilter& decoder);

  HRESULT STDMETHODCALLTYPE EndOfStream() override;

 protected:
  bool Accepts(const AM_MEDIA_TYPE& type) override;
  HRESULT Process(IMediaSample& sample) override;

 private:
  DecoderFilter& m_decoder;
};

class DecoderOutputPin : public OutputPin {
 public:
  DecoderOutputPin(Filter& filter, const Pin& input) : OutputPin(filter, L"Out"), m_input(input) {}

 protected:
  // Empty before the input is connected.
  std::vector<MediaType> Types() override;
  std::size_t SampleSize(const AM_MEDIA_TYPE& type) override;

 private:
  const Pin& m_input;
};

class DecoderFilter : public Filter {
 public:
  DecoderFilter();

  HRESULT Decode(IMediaSample& sample);
  void EndStream() { m_output.DeliverEndOfStream(); }

 protected:
  std::vector<IPin*> Pins() override { return {&m_input, &m_output}; }
  HRESULT Prepare() override { return m_output.Commit(); }
  void Unprepare() override { m_output.Decommit(); }

 private:
  struct DestroyDecompressor {
    void operator()(void* decompressor) const { tjDestroy(decompressor); }
  };

  // Returns false if the JPEG is damaged or does not have the size of the video.
  bool DecodeInto(std::span<BYTE> argb, std::span<const BYTE> jpeg, const Video& video);

  DecoderInputPin m_input;
  DecoderOutputPin m_output;
  std::unique_ptr<void, DestroyDecompressor> m_decompressor;
};

}  // namespace fixtures
