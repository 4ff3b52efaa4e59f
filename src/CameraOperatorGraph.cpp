// Assembly of the capture graph: the camera's filter connected to a sample grabber.
#include <utility>

#include "CameraOperator.h"
#include "Log.h"
#include "Module.h"
#include "Receive.h"

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
  // The format must be set before the pin is connected.
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
  HRESULT hr = Receive(graphBuilder, [](void** out) {
    return CoCreateInstance(CLSID_FilterGraph, nullptr, CLSCTX_INPROC_SERVER | CLSCTX_INPROC_HANDLER,
                            IID_IGraphBuilder, out);
  });
  if (hr != S_OK || *graphBuilder == nullptr) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, __LINE__, L"CoCreateInstance fail, error: ", hr);
    return false;
  }
  // Overwrites an interface of an earlier graph without releasing it.
  static_cast<void>(m_mediaControl.Detach());
  hr = Receive(m_mediaControl.Put(),
               [&](void** out) { return (*graphBuilder)->QueryInterface(IID_IMediaControl, out); });
  if (!m_mediaControl) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, __LINE__, L"QueryInterface IID_IMediaControl fail, error: ", hr);
    return false;
  }
  if (!std::exchange(m_isModulePinned, true)) {
    // From here on only a close can release the graph, so the module must stay loaded until then.
    platform::PinModule();
  }
  static_cast<void>(m_mediaEvent.Detach());
  hr = Receive(m_mediaEvent.Put(),
               [&](void** out) { return (*graphBuilder)->QueryInterface(IID_IMediaEvent, out); });
  if (!m_mediaEvent) {
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
  // The filter is null if the camera has been disconnected since the query; AddFilter refuses null.
  if (const HRESULT hr = graphBuilder->AddFilter(*deviceFilter, nullptr); hr != S_OK) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, __LINE__, L"AddFilter fail, error: ", hr);
    return false;
  }
  return true;
}

bool CameraOperator::AddSampleGrabberFilter(IGraphBuilder* graphBuilder, std::uint32_t width,
                                            std::uint32_t height, IBaseFilter** grabberFilter) {
  HRESULT hr = Receive(grabberFilter, [](void** out) {
    return CoCreateInstance(CLSID_SampleGrabber, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter, out);
  });
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
  const HRESULT hr = Receive(enumerator.Put(), [&](IEnumPins** out) { return filter->EnumPins(out); });
  if (!enumerator) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, __LINE__, L"EnumPins fail, error: ", hr);
    return false;
  }
  for (;;) {
    ComPtr<IPin> candidate;
    if (Receive(candidate.Put(), [&](IPin** out) { return enumerator->Next(1, out, nullptr); }) != S_OK) {
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
