// What flows through the capture graph: the camera's output format and the sample grabber's settings.
#include <cstring>

#include "CameraCapabilityMgr.h"
#include "CameraOperator.h"
#include "Log.h"
#include "MediaType.h"
#include "Receive.h"

namespace {

constexpr LONG kCallBufferCB = 1;

}  // namespace

bool CameraOperator::SetCameraFormat(IPin* outputPin, std::uint32_t width, std::uint32_t height,
                                     std::uint32_t fps, GUID subType) {
  ComPtr<IAMStreamConfig> config;
  HRESULT hr =
      Receive(config.Put(), [&](void** out) { return outputPin->QueryInterface(IID_IAMStreamConfig, out); });
  if (!config) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, __LINE__, L"fail to get amstream config, error: ", hr);
    return false;
  }
  AM_MEDIA_TYPE* mediaType = nullptr;
  hr = Receive(&mediaType, [&](AM_MEDIA_TYPE** out) { return config->GetFormat(out); });
  if (mediaType == nullptr) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, __LINE__, L"fail to get camera parameter, error: ", hr);
    return false;
  }
  mediaType->subtype = subType;
  // A pin with another kind of format keeps the one that it has.
  if (HasVideoInfo(*mediaType)) {
    VIDEOINFOHEADER format{};
    std::memcpy(&format, mediaType->pbFormat, sizeof(format));
    format.bmiHeader.biWidth = static_cast<LONG>(width);
    format.bmiHeader.biHeight = static_cast<LONG>(height);
    format.AvgTimePerFrame = FpsToAvgTimePerFrame(fps);
    std::memcpy(mediaType->pbFormat, &format, sizeof(format));
    OPERATOR_LOG(ERROR_LOG_LEVEL, __LINE__, L"Set camera parameter, (", width, L",", height, L",", fps, L",",
                 subType.Data1, L")");
    hr = config->SetFormat(mediaType);
    if (hr != S_OK) {
      OPERATOR_LOG(ERROR_LOG_LEVEL, __LINE__, L"Set camera parameter fail, error:", hr);
    }
  }
  // The structure of a type that is used is not given back to task memory, only what it holds.
  FreeMediaTypeContents(*mediaType);
  return hr == S_OK;
}

bool CameraOperator::ConfigSampleGrabber(IBaseFilter* grabberFilter, std::uint32_t width,
                                         std::uint32_t height) {
  if (grabberFilter == nullptr) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, __LINE__, L"sampleGrabberFilter  is nullptr");
    return false;
  }
  ComPtr<ISampleGrabber> grabber;
  HRESULT hr = Receive(grabber.Put(),
                       [&](void** out) { return grabberFilter->QueryInterface(IID_ISampleGrabber, out); });
  if (!grabber) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, __LINE__, L"QueryInterface IID_ISampleGrabber fail, error: ", hr);
    return false;
  }
  // Without a format block the type imposes no frame size.
  const CapabilityEntry entry = CameraCapabilityMgr::GetInstance().FindCapability(width, height);
  AM_MEDIA_TYPE mediaType{};
  mediaType.majortype = MEDIATYPE_Video;
  mediaType.subtype = entry.format == CameraFormatCode::kMjpg ? MEDIASUBTYPE_ARGB32 : MEDIASUBTYPE_YUY2;
  mediaType.formattype = FORMAT_VideoInfo;
  hr = grabber->SetMediaType(&mediaType);
  if (hr != S_OK) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, __LINE__, L"SetMediaType fail, error: ", hr);
    return false;
  }
  hr = grabber->SetCallback(&m_grabberCB, kCallBufferCB);
  if (hr != S_OK) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, __LINE__, L"fail to set grabber callback, error: ", hr);
    return false;
  }
  hr = grabber->SetBufferSamples(TRUE);
  if (hr != S_OK) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, __LINE__, L"fail to set buffer sample, error: ", hr);
    return false;
  }
  // The first sample completes the graph, which is what an open request waits for; samples go on arriving.
  hr = grabber->SetOneShot(TRUE);
  if (hr != S_OK) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, __LINE__, L"fail to set one shot, error: ", hr);
    return false;
  }
  return true;
}
