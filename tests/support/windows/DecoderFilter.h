// Makes ARGB32 pictures, bottom-up, or YUY2 pictures of MJPG frames. The system inserts it where a connection
// needs it.
#pragma once

#include <turbojpeg.h>

#include <memory>

#include "support/windows/Pin.h"

namespace fixtures {

class DecoderFilter;

class DecoderInput : public InputPin {
 public:
  explicit DecoderInput(DecoderFilter& decoder);

  HRESULT STDMETHODCALLTYPE EndOfStream() override;

 protected:
  bool Accepts(const AM_MEDIA_TYPE& type) override;
  HRESULT Take(IMediaSample& sample) override;

 private:
  DecoderFilter& m_decoder;
};

class DecoderOutput : public OutputPin {
 public:
  DecoderOutput(Filter& filter, const Pin& input) : OutputPin(filter, L"Out"), m_input(input) {}

 protected:
  // None before the input is connected.
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

  bool DecodeInto(std::span<BYTE> room, std::span<const BYTE> jpeg, const Video& video);
  bool DecodeArgb(BYTE* out, std::span<const BYTE> jpeg, const Video& video, int flags);

  DecoderInput m_input;
  DecoderOutput m_output;
  std::unique_ptr<void, DestroyDecompressor> m_decompressor;
  std::vector<BYTE> m_argb;  // on the way to YUY2
};

}  // namespace fixtures
