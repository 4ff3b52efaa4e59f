#include "support/windows/DecoderFilter.h"

#include <new>

#include "support/windows/Registration.h"

namespace fixtures {

DecoderInputPin::DecoderInputPin(DecoderFilter& decoder) : InputPin(decoder, L"In"), m_decoder(decoder) {}

HRESULT STDMETHODCALLTYPE DecoderInputPin::EndOfStream() {
  m_decoder.EndStream();
  return S_OK;
}

bool DecoderInputPin::Accepts(const AM_MEDIA_TYPE& type) {
  const std::optional<Video> video = ReadVideoType(type);
  return video && video->subtype == MEDIASUBTYPE_MJPG && video->width > 0 && video->height > 0;
}

HRESULT DecoderInputPin::Process(IMediaSample& sample) { return m_decoder.Decode(sample); }

std::vector<MediaType> DecoderOutputPin::Types() {
  if (!m_input.IsConnected()) {
    return {};
  }
  Video video = ReadVideoType(m_input.Type()).value();
  video.isVideoInfo2 = false;
  video.subtype = MEDIASUBTYPE_ARGB32;
  video.sampleSize = 4 * static_cast<DWORD>(video.width) * static_cast<DWORD>(video.height);
  return {MakeVideoType(video)};
}

std::size_t DecoderOutputPin::SampleSize(const AM_MEDIA_TYPE& type) { return type.lSampleSize; }

DecoderFilter::DecoderFilter()
    : Filter(kMjpgDecoderClass),
      m_input(*this),
      m_output(*this, m_input),
      m_decompressor(tjInitDecompress()) {
  if (!m_decompressor) {
    throw std::bad_alloc();
  }
}

HRESULT DecoderFilter::Decode(IMediaSample& sample) {
  const std::optional<Video> video = ReadVideoType(m_output.Type());
  if (!video) {
    return VFW_E_NOT_CONNECTED;
  }
  ComPtr<IMediaSample> decoded;
  if (const HRESULT hr = m_output.GetSample(decoded); FAILED(hr)) {
    return hr;
  }
  if (!DecodeInto(BufferOf(*decoded.Get()), DataOf(sample), *video)) {
    // Undecodable frames are dropped.
    return S_OK;
  }
  decoded->SetActualDataLength(static_cast<LONG>(video->sampleSize));
  REFERENCE_TIME start = 0;
  REFERENCE_TIME end = 0;
  if (SUCCEEDED(sample.GetTime(&start, &end))) {
    decoded->SetTime(&start, &end);
  }
  decoded->SetSyncPoint(TRUE);
  return m_output.Deliver(*decoded.Get());
}

bool DecoderFilter::DecodeInto(std::span<BYTE> argb, std::span<const BYTE> jpeg, const Video& video) {
  int width = 0;
  int height = 0;
  int sampling = 0;
  int colours = 0;
  const auto size = static_cast<unsigned long>(jpeg.size());
  return tjDecompressHeader3(m_decompressor.get(), jpeg.data(), size, &width, &height, &sampling, &colours) ==
             0 &&
         width == video.width && height == video.height && argb.size() >= video.sampleSize &&
         tjDecompress2(m_decompressor.get(), jpeg.data(), size, argb.data(), width, 4 * width, height,
                       TJPF_BGRA, TJFLAG_BOTTOMUP | TJFLAG_STOPONWARNING) == 0;
}

}  // namespace fixtures
