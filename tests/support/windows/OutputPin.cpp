#include <algorithm>

#include "support/windows/Pin.h"

namespace fixtures {
namespace {

constexpr LONG kSamples = 3;
constexpr LONG kAlignment = 16;

// Types that a pin offers, as it enumerates them.
std::vector<MediaType> TypesOf(IPin& pin) {
  std::vector<MediaType> types;
  ComPtr<IEnumMediaTypes> enumerator;
  if (FAILED(pin.EnumMediaTypes(enumerator.Put())) || !enumerator) {
    return types;
  }
  AM_MEDIA_TYPE* type = nullptr;
  while (enumerator->Next(1, &type, nullptr) == S_OK) {
    types.emplace_back(*type);
    CoTaskMemFree(type->pbFormat);
    if (type->pUnk != nullptr) {
      type->pUnk->Release();
    }
    CoTaskMemFree(type);
  }
  return types;
}

}  // namespace

HRESULT STDMETHODCALLTYPE OutputPin::Connect(IPin* receiver, const AM_MEDIA_TYPE* type) {
  if (receiver == nullptr) {
    return E_POINTER;
  }
  return com::CatchToHresult([&]() -> HRESULT {
    if (IsConnected()) {
      return VFW_E_ALREADY_CONNECTED;
    }
    if (Owner().State() != State_Stopped) {
      return VFW_E_NOT_STOPPED;
    }
    // A whole type is tried as it is, with a partial one those of either side that it covers.
    if (type != nullptr && type->formattype != GUID_NULL && type->pbFormat != nullptr) {
      return Accepts(*type) ? TryType(*receiver, *type) : VFW_E_TYPE_NOT_ACCEPTED;
    }
    std::vector<MediaType> candidates = Types();
    for (MediaType& offered : TypesOf(*receiver)) {
      if (Accepts(offered.Get())) {
        candidates.push_back(std::move(offered));
      }
    }
    for (const MediaType& candidate : candidates) {
      if ((type == nullptr || Matches(candidate.Get(), *type)) &&
          TryType(*receiver, candidate.Get()) == S_OK) {
        return S_OK;
      }
    }
    return VFW_E_NO_ACCEPTABLE_TYPES;
  });
}

HRESULT STDMETHODCALLTYPE OutputPin::ReceiveConnection(IPin* /*connector*/, const AM_MEDIA_TYPE* /*type*/) {
  return E_UNEXPECTED;
}

HRESULT OutputPin::TryType(IPin& receiver, const AM_MEDIA_TYPE& type) {
  if (const HRESULT hr = receiver.ReceiveConnection(this, &type); FAILED(hr)) {
    return hr;
  }
  if (const HRESULT hr = AgreeOnAllocator(receiver, type); FAILED(hr)) {
    receiver.Disconnect();
    LetGo();
    return hr;
  }
  SetConnection(&receiver, type);
  return S_OK;
}

HRESULT OutputPin::AgreeOnAllocator(IPin& receiver, const AM_MEDIA_TYPE& type) {
  HRESULT hr = receiver.QueryInterface(IID_IMemInputPin, m_receiver.PutVoid());
  if (FAILED(hr)) {
    return hr;
  }
  hr = CoCreateInstance(CLSID_MemoryAllocator, nullptr, CLSCTX_INPROC_SERVER, IID_IMemAllocator,
                        m_allocator.PutVoid());
  if (FAILED(hr)) {
    return hr;
  }
  ALLOCATOR_PROPERTIES wanted{};
  if (FAILED(m_receiver->GetAllocatorRequirements(&wanted))) {
    wanted = {};
  }
  wanted.cBuffers = std::max(wanted.cBuffers, kSamples);
  wanted.cbBuffer = std::max(wanted.cbBuffer, static_cast<LONG>(SampleSize(type)));
  wanted.cbAlign = std::max(wanted.cbAlign, kAlignment);
  ALLOCATOR_PROPERTIES actual{};
  hr = m_allocator->SetProperties(&wanted, &actual);
  if (FAILED(hr)) {
    return hr;
  }
  return actual.cbBuffer < wanted.cbBuffer ? E_FAIL : m_receiver->NotifyAllocator(m_allocator.Get(), FALSE);
}

bool OutputPin::Accepts(const AM_MEDIA_TYPE& type) {
  const std::vector<MediaType> offered = Types();
  return std::any_of(offered.begin(), offered.end(),
                     [&](const MediaType& candidate) { return candidate.IsEqualTo(type); });
}

void OutputPin::LetGo() {
  m_receiver.Reset();
  m_allocator.Reset();
}

HRESULT OutputPin::Commit() { return m_allocator ? m_allocator->Commit() : S_OK; }

void OutputPin::Decommit() {
  if (m_allocator) {
    m_allocator->Decommit();
  }
}

HRESULT OutputPin::GetSample(ComPtr<IMediaSample>& sample) {
  return m_allocator ? m_allocator->GetBuffer(sample.Put(), nullptr, nullptr, 0) : VFW_E_NOT_CONNECTED;
}

HRESULT OutputPin::Deliver(IMediaSample& sample) {
  return m_receiver ? m_receiver->Receive(&sample) : VFW_E_NOT_CONNECTED;
}

void OutputPin::DeliverEndOfStream() {
  if (Peer() != nullptr) {
    Peer()->EndOfStream();
  }
}

}  // namespace fixtures
