// The output pin of a camera's filter.
#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "com/ComObject.h"

// The pin: what the camera offers, what it is set to, and to which connection it belongs. Callable from any
// thread.
class CapturePin : public ComPart<IPin, IAMStreamConfig, IFrameSource> {
 public:
  CapturePin(IBaseFilter& owner, std::unique_ptr<CaptureSource> source);

  HRESULT STDMETHODCALLTYPE QueryPinInfo(PIN_INFO* info) override;
  HRESULT STDMETHODCALLTYPE QueryDirection(PIN_DIRECTION* direction) override;
  // The device's own failure when it cannot be asked.
  HRESULT STDMETHODCALLTYPE EnumMediaTypes(IEnumMediaTypes** enumerator) override;

  // Size, subtype and interval of the type count; the rest follows from them.
  HRESULT STDMETHODCALLTYPE SetFormat(AM_MEDIA_TYPE* type) override;
  HRESULT STDMETHODCALLTYPE GetFormat(AM_MEDIA_TYPE** type) override;

  HRESULT STDMETHODCALLTYPE Claim(VideoFormat* format) override;
  void STDMETHODCALLTYPE Unclaim() override;
  CaptureSource* STDMETHODCALLTYPE Source() override { return m_source.get(); }

 private:
  // With m_mutex held.
  HRESULT ListFormats();
  HRESULT CurrentFormat(VideoFormat& format);

  std::mutex m_mutex;
  std::unique_ptr<CaptureSource> m_source;
  std::vector<VideoFormat> m_offered;
  bool m_isListed = false;
  VideoFormat m_format;  // fourCc 0: not set
  bool m_isClaimed = false;
};
