// The capture graph: the camera's filter, connected to a sample grabber, and nothing else.
#include "CameraOperator.h"
#include "Log.h"

bool CameraOperator::OpenCamera(unsigned int cameraIndex, std::uint32_t width, std::uint32_t height,
                                std::uint32_t fps, GUID subType) {
  OPERATOR_LOG(ERROR_LOG_LEVEL, __LINE__, L"start OpenCamera, width:", width, L", height:", height, L", fps:",
               fps);
  ComPtr<IGraphBuilder> graphBuilder;
  if (!InitCameraBasicInfo(graphBuilder.Put()) || !graphBuilder) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, __LINE__, L"InitCameraBasicInfo fail. cameraId:", cameraIndex);
    return false;
  }
  ComPtr<IBaseFilter> deviceFilter;
  if (!AddDeviceFilter(cameraIndex, graphBuilder.Get(), deviceFilter.Put()) || !deviceFilter) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, __LINE__, L"AddDeviceFilter fail.");
    return false;
  }
  ComPtr<IBaseFilter> grabberFilter;
  if (!AddSampleGrabberFilter(graphBuilder.Get(), width, height, grabberFilter.Put()) || !grabberFilter) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, __LINE__, L"AddSampleGrabberFilter fail.");
    return false;
  }
  ComPtr<IPin> devicePin;
  if (!QueryFilterPin(deviceFilter.Get(), PINDIR_OUTPUT, devicePin.Put()) || !devicePin) {
    return false;
  }
  // The format is a matter of the unconnected pin.
  if (!SetCameraFormat(devicePin.Get(), width, height, fps, subType)) {
    return false;
  }
  ComPtr<IPin> grabberPin;
  if (!QueryFilterPin(grabberFilter.Get(), PINDIR_INPUT, grabberPin.Put()) || !grabberPin) {
    return false;
  }
  if (const HRESULT hr = graphBuilder->Connect(devicePin.Get(), grabberPin.Get()); hr != S_OK) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, __LINE__, L"fail to Connect pin, error: ", hr);
    return false;
  }
  OPERATOR_LOG(ERROR_LOG_LEVEL, __LINE__, L"OpenCamera success.");
  m_isOpened = true;
  return true;
}

bool CameraOperator::InitCameraBasicInfo(IGraphBuilder** graphBuilder) {
  HRESULT hr = CoCreateInstance(CLSID_FilterGraph, nullptr, CLSCTX_INPROC_SERVER | CLSCTX_INPROC_HANDLER,
                                IID_IGraphBuilder, reinterpret_cast<void**>(graphBuilder));
  if (hr != S_OK || *graphBuilder == nullptr) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, __LINE__, L"CoCreateInstance fail, error: ", hr);
    return false;
  }
  // What is still held from an earlier graph is overwritten.
  hr = (*graphBuilder)->QueryInterface(IID_IMediaControl, m_mediaControl.AddressVoid());
  if (hr != S_OK || !m_mediaControl) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, __LINE__, L"QueryInterface IID_IMediaControl fail, error: ", hr);
    return false;
  }
  hr = (*graphBuilder)->QueryInterface(IID_IMediaEvent, m_mediaEvent.AddressVoid());
  if (hr != S_OK || !m_mediaEvent) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, __LINE__, L"QueryInterface IID_IMediaEvent fail, error: ", hr);
    return false;
  }
  return true;
}

bool CameraOperator::AddDeviceFilter(unsigned int cameraIndex, IGraphBuilder* graphBuilder,
                                     IBaseFilter** deviceFilter) {
  if (!BindDeviceFilter(cameraIndex, deviceFilter)) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, __LINE__, L"BindDeviceFilter fail.");
    return false;
  }
  // A camera that has gone since it was counted left the filter null; the graph refuses that.
  if (const HRESULT hr = graphBuilder->AddFilter(*deviceFilter, nullptr); hr != S_OK) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, __LINE__, L"AddFilter fail, error: ", hr);
    return false;
  }
  return true;
}

bool CameraOperator::AddSampleGrabberFilter(IGraphBuilder* graphBuilder, std::uint32_t width,
                                            std::uint32_t height, IBaseFilter** grabberFilter) {
  HRESULT hr = CoCreateInstance(CLSID_SampleGrabber, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter,
                                reinterpret_cast<void**>(grabberFilter));
  if (hr != S_OK || *grabberFilter == nullptr) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, __LINE__, L"CoCreateInstance sampleGrabberFilter fail, error: ", hr);
    return false;
  }
  if (!ConfigSampleGrabber(*grabberFilter, width, height)) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, __LINE__, L"ConfigSampleGrabber fail.");
    return false;
  }
  hr = graphBuilder->AddFilter(*grabberFilter, L"Grabber");
  if (hr != S_OK) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, __LINE__, L"AddFilter fail, error: ", hr);
    return false;
  }
  return true;
}

bool CameraOperator::QueryFilterPin(IBaseFilter* filter, PIN_DIRECTION direction, IPin** pin) {
  ComPtr<IEnumPins> enumerator;
  const HRESULT hr = filter->EnumPins(enumerator.Put());
  if (hr != S_OK || !enumerator) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, __LINE__, L"EnumPins fail, error: ", hr);
    return false;
  }
  for (;;) {
    ComPtr<IPin> candidate;
    if (enumerator->Next(1, candidate.Put(), nullptr) != S_OK) {
      OPERATOR_LOG(ERROR_LOG_LEVEL, __LINE__, L"QueryFilterPin fail.");
      return false;
    }
    if (!candidate) {
      continue;
    }
    auto found = PINDIR_INPUT;
    if (candidate->QueryDirection(&found) == S_OK && found == direction) {
      *pin = candidate.Detach();
      return true;
    }
  }
}
