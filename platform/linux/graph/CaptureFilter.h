// The filter of one camera, with its output pin.
#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "graph/StreamInterfaces.h"

namespace graph {

// The output pin: the formats that the camera offers, the format that it is set to, and whether a connection
// uses it. May be called from any thread.
class CapturePin : public com::ComPart<IPin, IAMStreamConfig, IFrameSource> {
 public:
  CapturePin(IBaseFilter& owner, std::unique_ptr<CaptureSource> source);

  HRESULT STDMETHODCALLTYPE QueryPinInfo(PIN_INFO* info) override;
  HRESULT STDMETHODCALLTYPE QueryDirection(PIN_DIRECTION* direction) override;
  // Returns the device's error if its formats cannot be listed.
  HRESULT STDMETHODCALLTYPE EnumMediaTypes(IEnumMediaTypes** enumerator) override;

  // Uses the size, subtype and frame interval of the media type.
  HRESULT STDMETHODCALLTYPE SetFormat(AM_MEDIA_TYPE* type) override;
  HRESULT STDMETHODCALLTYPE GetFormat(AM_MEDIA_TYPE** type) override;

  HRESULT STDMETHODCALLTYPE AcquireStream(VideoFormat* format) override;
  void STDMETHODCALLTYPE ReleaseStream() override;
  CaptureSource* STDMETHODCALLTYPE Source() override { return m_source.get(); }

 private:
  // Both require m_mutex.
  HRESULT ListFormats();
  HRESULT CurrentFormat(VideoFormat& format);

  std::mutex m_mutex;
  std::unique_ptr<CaptureSource> m_source;
  std::vector<VideoFormat> m_offered;
  bool m_isListed = false;
  VideoFormat m_format;  // fourCc 0: not set
  bool m_isAcquired = false;
};

class CaptureFilter : public com::ComObject<IBaseFilter> {
 public:
  explicit CaptureFilter(std::unique_ptr<CaptureSource> source);

  HRESULT STDMETHODCALLTYPE EnumPins(IEnumPins** enumerator) override;

 private:
  CapturePin m_pin;
};

}  // namespace graph
