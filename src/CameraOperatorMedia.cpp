// Media types and frame rates of the camera.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>

#include "CameraCapabilityMgr.h"
#include "CameraOperator.h"
#include "InsertionSort.h"
#include "Log.h"
#include "MediaType.h"
#include "Receive.h"

namespace {

// DirectShow's time unit is 100 ns.
constexpr double kUnitsPerSecond = 10'000'000.0;
constexpr unsigned int kDefaultFps = 30;
// Interval for a rate of 0. It does not correspond to kDefaultFps; kept for compatibility.
constexpr __int64 kDefaultInterval = 33;

// Deleter of a media type that an enumerator returned: frees the contents and the structure.
struct FreeMediaType {
  void operator()(AM_MEDIA_TYPE* mediaType) const {
    FreeMediaTypeContents(*mediaType);
    CoTaskMemFree(mediaType);
  }
};

// Owns the references that EnumPins returned.
struct PinList {
  PinList() = default;
  PinList(const PinList&) = delete;
  PinList& operator=(const PinList&) = delete;
  ~PinList() { Release(); }

  void Release() {
    for (IPin* const pin : pins) {
      pin->Release();
    }
    pins.clear();
  }

  std::vector<IPin*> pins;
};

// These two comparisons are not strict weak orderings: 1280x480 and 640x720 each come before the other. Hosts
// depend on the resulting order.
bool SizeComesBefore(const tagSIZE& a, const tagSIZE& b) { return a.cx < b.cx || a.cy < b.cy; }

bool SubTypeComesBefore(const GUID& a, const GUID& b) {
  if (a.Data1 < b.Data1 || a.Data2 < b.Data2 || a.Data3 < b.Data3) {
    return true;
  }
  for (std::size_t i = 0; i < sizeof(a.Data4); ++i) {
    if (a.Data4[i] < b.Data4[i]) {
      return true;
    }
  }
  return false;
}

template <typename T, typename Equal>
void RemoveAdjacentDuplicates(std::vector<T>& list, Equal equal) {
  list.erase(std::unique(list.begin(), list.end(), equal), list.end());
  list.shrink_to_fit();
}

}  // namespace

unsigned int CameraOperator::AvgTimePerFrameToFps(const __int64 avgTimePerFrame) {
  if (avgTimePerFrame == 0) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, 434, L"avgTimePerFrame is 0.");
    return kDefaultFps;
  }
  return static_cast<unsigned int>(
      static_cast<__int64>(std::floor(kUnitsPerSecond / static_cast<double>(avgTimePerFrame))));
}

__int64 CameraOperator::FpsToAvgTimePerFrame(const unsigned int fps) {
  if (fps == 0) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, 445, L"fps is 0.");
    return kDefaultInterval;
  }
  return static_cast<std::int32_t>(std::floor(kUnitsPerSecond / fps));
}

bool CameraOperator::EnumPins(IBaseFilter* devFilter, std::vector<IPin*>& pins) {
  if (devFilter == nullptr) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, 456, L"invalid para, devFilter is nullptr");
    return false;
  }
  ComPtr<IEnumPins> enumerator;
  const HRESULT hr = Receive(enumerator.Put(), [&](IEnumPins** out) { return devFilter->EnumPins(out); });
  if (!enumerator) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, 463, L"fail to enum pins, error: ", hr);
    return false;
  }
  ComPtr<IPin> pin;
  while (Receive(pin.Put(), [&](IPin** out) { return enumerator->Next(1, out, nullptr); }) == S_OK) {
    if (pin) {
      pins.push_back(pin.Get());
      // The list owns the reference now.
      static_cast<void>(pin.Detach());
    }
  }
  return true;
}

void CameraOperator::ParseMediaType(const AM_MEDIA_TYPE& mediaType, std::vector<GUID>& subTypes,
                                    std::vector<tagSIZE>& sizes, std::vector<unsigned int>& fpsList) {
  if (!HasVideoInfo(mediaType)) {
    return;
  }
  VIDEOINFOHEADER format{};
  std::memcpy(&format, mediaType.pbFormat, sizeof(format));
  const LONG width = format.bmiHeader.biWidth;
  const LONG height = format.bmiHeader.biHeight;
  subTypes.push_back(mediaType.subtype);
  sizes.push_back({width, height});
  const unsigned int fps = AvgTimePerFrameToFps(format.AvgTimePerFrame);
  fpsList.push_back(fps * 1000);
  CameraCapabilityMgr::GetInstance().Add(static_cast<unsigned int>(width), static_cast<unsigned int>(height),
                                         fps, mediaType.subtype);
  OPERATOR_LOG(ERROR_LOG_LEVEL, 427, L"ParseMediaType success, width: ", width, L", height:", height,
               L",fps:", fps, L",subType:", mediaType.subtype.Data1);
}

bool CameraOperator::QueryCameraPinInfo(const std::vector<IPin*>& pins, std::vector<GUID>& subTypes,
                                        std::vector<tagSIZE>& sizes, std::vector<unsigned int>& fpsList) {
  for (IPin* const pin : pins) {
    if (pin == nullptr) {
      continue;
    }
    // The call must succeed; the filter that it returns is only released.
    ComPtr<IBaseFilter> unused;
    HRESULT hr = Receive(unused.Put(), [&](IBaseFilter** out) {
      PIN_INFO info{};
      const HRESULT result = pin->QueryPinInfo(&info);
      *out = info.pFilter;
      return result;
    });
    if (hr != S_OK) {
      OPERATOR_LOG(ERROR_LOG_LEVEL, 375, L"QueryPinInfo fail, error: ", hr);
      return false;
    }
    ComPtr<IEnumMediaTypes> enumerator;
    hr = Receive(enumerator.Put(), [&](IEnumMediaTypes** out) { return pin->EnumMediaTypes(out); });
    if (!enumerator) {
      OPERATOR_LOG(ERROR_LOG_LEVEL, 383, L"EnumMediaTypes fail, error: ", hr);
      return false;
    }
    for (;;) {
      AM_MEDIA_TYPE* next = nullptr;
      if (Receive(&next, [&](AM_MEDIA_TYPE** out) { return enumerator->Next(1, out, nullptr); }) != S_OK) {
        break;
      }
      const std::unique_ptr<AM_MEDIA_TYPE, FreeMediaType> mediaType(next);
      if (mediaType == nullptr) {
        OPERATOR_LOG(ERROR_LOG_LEVEL, 391, L"mediaType is nullptr.");
        continue;
      }
      ParseMediaType(*mediaType, subTypes, sizes, fpsList);
    }
  }
  return true;
}

bool CameraOperator::GetCameraCapabilities(unsigned int cameraIndex, std::vector<tagSIZE>& sizes,
                                           std::vector<GUID>& subTypes, std::vector<unsigned int>& fpsList) {
  ComPtr<IBaseFilter> filter;
  if (!BindDeviceFilter(cameraIndex, filter.Put())) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, 337, L"BindFilter fail, cameraIndex: ", cameraIndex);
    return false;
  }
  PinList pinList;
  if (!EnumPins(filter.Get(), pinList.pins)) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, 343, L"EnumPins fail, cameraIndex: ", cameraIndex);
    return false;
  }
  // The table describes the camera that was queried last.
  CameraCapabilityMgr::GetInstance().Clear();
  if (!QueryCameraPinInfo(pinList.pins, subTypes, sizes, fpsList)) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, 349, L"fail to query camera pin info.");
    return false;
  }
  pinList.Release();
  SortAndUniqueCapabilities(sizes, subTypes, fpsList);
  return true;
}

void CameraOperator::SortAndUniqueCapabilities(std::vector<tagSIZE>& sizes, std::vector<GUID>& subTypes,
                                               std::vector<unsigned int>& fpsList) {
  InsertionSort(sizes, SizeComesBefore);
  RemoveAdjacentDuplicates(sizes,
                           [](const tagSIZE& a, const tagSIZE& b) { return a.cx == b.cx && a.cy == b.cy; });
  InsertionSort(subTypes, SubTypeComesBefore);
  RemoveAdjacentDuplicates(subTypes, [](const GUID& a, const GUID& b) { return IsEqualGUID(a, b); });
  InsertionSort(fpsList, [](unsigned int a, unsigned int b) { return a < b; });
  RemoveAdjacentDuplicates(fpsList, [](unsigned int a, unsigned int b) { return a == b; });
}
