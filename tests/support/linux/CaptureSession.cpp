#include "support/linux/CaptureSession.h"

#include <algorithm>
#include <array>
#include <cctype>

#include "MediaType.h"

namespace linux_support {
namespace {

constexpr std::size_t kIdSize = 256;
constexpr std::size_t kDetailSize = 2048;

std::string IdOf(DEVINST node) {
  std::array<char, kIdSize> id{};
  return CM_Get_Device_IDA(node, id.data(), kIdSize, 0) == CR_SUCCESS ? std::string(id.data())
                                                                      : std::string();
}

bool IsRemovable(DEVINST node) {
  ULONG status = 0;
  ULONG problem = 0;
  return CM_Get_DevNode_Status(&status, &problem, node, 0) != CR_SUCCESS || (status & DN_REMOVABLE) != 0;
}

// Display names are ASCII in these tests.
std::string Narrow(const WCHAR* text) {
  std::string narrow;
  for (; *text != 0; ++text) {
    narrow.push_back(static_cast<char>(*text));
  }
  return narrow;
}

std::string FourCcText(const GUID& subtype) {
  std::string text;
  for (int i = 0; i < 4; ++i) {
    text.push_back(static_cast<char>((subtype.Data1 >> (8 * i)) & 0xFF));
  }
  return text;
}

}  // namespace

ComPtr<IEnumMoniker> EnumerateMonikers() {
  ComPtr<ICreateDevEnum> devices;
  ComPtr<IEnumMoniker> monikers;
  if (CoCreateInstance(CLSID_SystemDeviceEnum, nullptr, CLSCTX_INPROC_SERVER, IID_ICreateDevEnum,
                       devices.PutVoid()) == S_OK) {
    devices->CreateClassEnumerator(CLSID_VideoInputDeviceCategory, monikers.Put(), 0);
  }
  return monikers;
}

std::vector<EnumeratedDevice> ListCaptureDevices() {
  std::vector<EnumeratedDevice> devices;
  const ComPtr<IEnumMoniker> monikers = EnumerateMonikers();
  ComPtr<IMoniker> moniker;
  while (monikers && monikers->Next(1, moniker.Put(), nullptr) == S_OK) {
    LPOLESTR text = nullptr;
    if (moniker->GetDisplayName(nullptr, nullptr, &text) == S_OK) {
      devices.push_back({moniker, Narrow(text)});
      CoTaskMemFree(text);
    }
  }
  return devices;
}

std::vector<std::string> DisplayNames() {
  std::vector<std::string> names;
  for (const EnumeratedDevice& device : ListCaptureDevices()) {
    names.push_back(device.displayName);
  }
  return names;
}

std::vector<EnumeratedUsbDevice> ListUsbDevices() {
  std::vector<EnumeratedUsbDevice> devices;
  HDEVINFO set = SetupDiGetClassDevsW(&GUID_DEVINTERFACE_USB_DEVICE, nullptr, nullptr,
                                      DIGCF_PRESENT | DIGCF_PROFILE | DIGCF_DEVICEINTERFACE);
  SP_DEVICE_INTERFACE_DATA data{};
  data.cbSize = sizeof(data);
  for (DWORD index = 0;
       SetupDiEnumDeviceInterfaces(set, nullptr, &GUID_DEVINTERFACE_USB_DEVICE, index, &data) == TRUE;
       ++index) {
    alignas(SP_DEVICE_INTERFACE_DETAIL_DATA_W) std::array<unsigned char, kDetailSize> buffer{};
    auto* const detail = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_W*>(buffer.data());
    detail->cbSize = sizeof(*detail);
    SP_DEVINFO_DATA device{};
    device.cbSize = sizeof(device);
    if (SetupDiGetDeviceInterfaceDetailW(set, &data, detail, kDetailSize, nullptr, &device) == FALSE ||
        SetupDiEnumDeviceInfo(set, index, &device) == FALSE) {
      continue;
    }
    DEVINST child = 0;
    const bool hasChild = CM_Get_Child(&child, device.DevInst, 0) == CR_SUCCESS && child != 0;
    devices.push_back({IdOf(device.DevInst), IsRemovable(device.DevInst), hasChild ? IdOf(child) : ""});
  }
  SetupDiDestroyDeviceInfoList(set);
  return devices;
}

std::string ToDisplayNameForm(std::string id) {
  for (char& c : id) {
    c = c == '\\' ? '#' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  }
  return id;
}

std::string BuiltInCameraName() {
  const std::vector<std::string> names = DisplayNames();
  for (const EnumeratedUsbDevice& device : ListUsbDevices()) {
    if (device.isRemovable || device.childId.empty()) {
      continue;
    }
    const std::string part = ToDisplayNameForm(device.childId);
    for (const std::string& name : names) {
      if (name.find(part) != std::string::npos) {
        return name;
      }
    }
  }
  return {};
}

HRESULT BindCamera(const std::string& partOfName, ComPtr<IBaseFilter>& filter) {
  for (const EnumeratedDevice& device : ListCaptureDevices()) {
    if (device.displayName.find(partOfName) != std::string::npos) {
      return device.moniker->BindToObject(nullptr, nullptr, IID_IBaseFilter, filter.PutVoid());
    }
  }
  return E_FAIL;
}

ComPtr<IBaseFilter> FirstCamera() {
  ComPtr<IBaseFilter> filter;
  BindCamera("", filter);
  return filter;
}

void FreeMediaType::operator()(AM_MEDIA_TYPE* type) const {
  FreeMediaTypeContents(*type);
  CoTaskMemFree(type);
}

VIDEOINFOHEADER& Video(const MediaType& type) { return *reinterpret_cast<VIDEOINFOHEADER*>(type->pbFormat); }

std::string Describe(const MediaType& type) {
  const VIDEOINFOHEADER& video = Video(type);
  return FourCcText(type->subtype) + " " + std::to_string(video.bmiHeader.biWidth) + "x" +
         std::to_string(video.bmiHeader.biHeight) + " " + std::to_string(video.AvgTimePerFrame);
}

ComPtr<IPin> FindPin(IBaseFilter& filter, PIN_DIRECTION direction) {
  ComPtr<IEnumPins> pins;
  ComPtr<IPin> pin;
  if (filter.EnumPins(pins.Put()) != S_OK) {
    return {};
  }
  while (pins->Next(1, pin.Put(), nullptr) == S_OK) {
    PIN_DIRECTION found{};
    if (pin->QueryDirection(&found) == S_OK && found == direction) {
      return pin;
    }
  }
  return {};
}

HRESULT ListMediaTypes(IPin& pin, std::vector<MediaType>& types) {
  ComPtr<IEnumMediaTypes> enumerator;
  const HRESULT result = pin.EnumMediaTypes(enumerator.Put());
  AM_MEDIA_TYPE* type = nullptr;
  while (enumerator && enumerator->Next(1, &type, nullptr) == S_OK) {
    types.emplace_back(type);
  }
  return result;
}

ComPtr<IAMStreamConfig> StreamConfig(IPin& pin) {
  ComPtr<IAMStreamConfig> config;
  pin.QueryInterface(IID_IAMStreamConfig, config.PutVoid());
  return config;
}

HRESULT CurrentFormat(IPin& pin, MediaType& type) {
  AM_MEDIA_TYPE* current = nullptr;
  const HRESULT result = StreamConfig(pin)->GetFormat(&current);
  type.reset(current);
  return result;
}

std::string DescribeCurrentFormat(IPin& pin) {
  MediaType type;
  return CurrentFormat(pin, type) == S_OK ? Describe(type) : "none";
}

HRESULT ChangeFormat(IPin& pin, const GUID& subtype, LONG width, LONG height, LONGLONG interval) {
  MediaType type;
  if (const HRESULT result = CurrentFormat(pin, type); result != S_OK) {
    return result;
  }
  type->subtype = subtype;
  Video(type).bmiHeader.biWidth = width;
  Video(type).bmiHeader.biHeight = height;
  Video(type).AvgTimePerFrame = interval;
  return StreamConfig(pin)->SetFormat(type.get());
}

HRESULT CaptureGraph::Create() {
  HRESULT result = CoCreateInstance(CLSID_FilterGraph, nullptr, CLSCTX_INPROC_SERVER | CLSCTX_INPROC_HANDLER,
                                    IID_IGraphBuilder, builder.PutVoid());
  if (result == S_OK) {
    result = builder->QueryInterface(IID_IMediaControl, control.PutVoid());
  }
  return result == S_OK ? builder->QueryInterface(IID_IMediaEvent, event.PutVoid()) : result;
}

HRESULT CaptureGraph::AddCamera(const ComPtr<IBaseFilter>& added) {
  camera = added;
  return builder->AddFilter(camera.Get(), nullptr);
}

HRESULT CaptureGraph::AddGrabber(ISampleGrabberCB* callback, const GraphSettings& settings) {
  HRESULT result = CoCreateInstance(CLSID_SampleGrabber, nullptr, CLSCTX_INPROC_SERVER, IID_IBaseFilter,
                                    grabberFilter.PutVoid());
  if (result != S_OK) {
    return result;
  }
  result = grabberFilter->QueryInterface(IID_ISampleGrabber, grabber.PutVoid());
  if (result != S_OK) {
    return result;
  }
  AM_MEDIA_TYPE type{};
  type.majortype = MEDIATYPE_Video;
  type.subtype = settings.grabberSubtype;
  type.formattype = FORMAT_VideoInfo;
  for (const HRESULT step :
       {grabber->SetMediaType(&type), grabber->SetCallback(callback, settings.whichMethod),
        grabber->SetBufferSamples(TRUE), grabber->SetOneShot(settings.oneShot)}) {
    if (step != S_OK) {
      return step;
    }
  }
  return builder->AddFilter(grabberFilter.Get(), L"Grabber");
}

HRESULT CaptureGraph::Connect() const { return builder->Connect(cameraPin.Get(), grabberPin.Get()); }

HRESULT CaptureGraph::FindPins() {
  cameraPin = FindPin(*camera.Get(), PINDIR_OUTPUT);
  grabberPin = FindPin(*grabberFilter.Get(), PINDIR_INPUT);
  return cameraPin && grabberPin ? S_OK : E_FAIL;
}

HRESULT CaptureGraph::Build(ISampleGrabberCB* callback, const GraphSettings& settings) {
  if (const HRESULT result = Create(); result != S_OK) {
    return result;
  }
  if (const HRESULT result = AddCamera(FirstCamera()); result != S_OK) {
    return result;
  }
  if (const HRESULT result = AddGrabber(callback, settings); result != S_OK) {
    return result;
  }
  if (const HRESULT result = FindPins(); result != S_OK) {
    return result;
  }
  if (const HRESULT result = ChangeFormat(*cameraPin.Get(), settings.cameraSubtype, settings.width,
                                          settings.height, settings.interval);
      result != S_OK) {
    return result;
  }
  return Connect();
}

void CaptureGraph::Release() { *this = CaptureGraph(); }

}  // namespace linux_support
