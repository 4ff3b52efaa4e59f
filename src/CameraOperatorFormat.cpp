// Output format of the camera and settings of the sample grabber.
#include <cstddef>
#include <cstring>

#include "CameraCapabilityMgr.h"
#include "CameraOperator.h"
#include "Log.h"
#include "MediaType.h"
#include "Receive.h"

namespace {

constexpr LONG kCallBufferCB = 1;

// Byte offsets of the VIDEOINFOHEADER fields that SetCameraFormat sets.
constexpr std::size_t kIntervalOffset = offsetof(VIDEOINFOHEADER, AvgTimePerFrame);
constexpr std::size_t kWidthOffset =
    offsetof(VIDEOINFOHEADER, bmiHeader) + offsetof(BITMAPINFOHEADER, biWidth);
constexpr std::size_t kHeightOffset =
    offsetof(VIDEOINFOHEADER, bmiHeader) + offsetof(BITMAPINFOHEADER, biHeight);
// End of the last of these fields.
constexpr std::size_t kFrameFormatEnd = kHeightOffset + sizeof(BITMAPINFOHEADER::biHeight);
static_assert(kIntervalOffset < kWidthOffset && kWidthOffset < kHeightOffset && kFrameFormatEnd == 60);

// True if the format block is a VIDEOINFOHEADER that is long enough for these fields. A cbFormat of 0 means
// that the length is unknown, and is accepted.
bool HasRoomForFrameFormat(const AM_MEDIA_TYPE& mediaType) {
  return IsEqualGUID(mediaType.formattype, FORMAT_VideoInfo) && mediaType.pbFormat != nullptr &&
         (mediaType.cbFormat == 0 || mediaType.cbFormat >= kFrameFormatEnd);
}

// Writes one field of the format block, which need not be aligned.
template <typename Field>
void SetField(AM_MEDIA_TYPE& mediaType, std::size_t offset, Field value) {
  std::memcpy(mediaType.pbFormat + offset, &value, sizeof(value));
}

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
  // Other kinds of format are left unchanged.
  if (HasRoomForFrameFormat(*mediaType)) {
    SetField(*mediaType, kWidthOffset, static_cast<LONG>(width));
    SetField(*mediaType, kHeightOffset, static_cast<LONG>(height));
    SetField(*mediaType, kIntervalOffset, REFERENCE_TIME{FpsToAvgTimePerFrame(fps)});
    OPERATOR_LOG(ERROR_LOG_LEVEL, __LINE__, L"Set camera parameter, (", width, L",", height, L",", fps, L",",
                 subType.Data1, L")");
    hr = config->SetFormat(mediaType);
    if (hr != S_OK) {
      OPERATOR_LOG(ERROR_LOG_LEVEL, __LINE__, L"Set camera parameter fail, error:", hr);
    }
  }
  // Only the contents are freed; the structure itself is not.
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
  // A media type without a format block accepts any frame size.
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
  // The first sample completes the graph, which ends the wait in OpenCameraInner. Samples keep arriving.
  hr = grabber->SetOneShot(TRUE);
  if (hr != S_OK) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, __LINE__, L"fail to set one shot, error: ", hr);
    return false;
  }
  return true;
}
