#include "support/windows/Pin.h"

#include <algorithm>
#include <cwchar>
#include <iterator>

namespace fixtures {
namespace {

constexpr LONG kMinBuffers = 3;
constexpr LONG kMinAlignment = 16;

}  // namespace

HRESULT STDMETHODCALLTYPE Pin::Disconnect() {
  if (m_filter.State() == State_Running) {
    return VFW_E_NOT_STOPPED;
  }
  // If one filter cannot be paused, Wine's graph leaves the others as they are; its destructor then retries
  // to disconnect them forever.
  m_filter.Stop();
  if (!m_peer) {
    return S_FALSE;
  }
  m_peer.Reset();
  m_type = MediaType();
  ReleaseConnection();
  return S_OK;
}

HRESULT STDMETHODCALLTYPE Pin::ConnectedTo(IPin** pin) {
  if (pin == nullptr) {
    return E_POINTER;
  }
  *pin = nullptr;
  return m_peer ? com::CopyTo(m_peer, pin) : VFW_E_NOT_CONNECTED;
}

HRESULT STDMETHODCALLTYPE Pin::ConnectionMediaType(AM_MEDIA_TYPE* type) {
  if (type == nullptr) {
    return E_POINTER;
  }
  *type = {};
  return m_peer ? m_type.CopyTo(type) : VFW_E_NOT_CONNECTED;
}

HRESULT STDMETHODCALLTYPE Pin::QueryPinInfo(PIN_INFO* info) {
  if (info == nullptr) {
    return E_POINTER;
  }
  *info = {};
  info->dir = m_direction;
  std::copy_n(m_name, std::min(std::wcslen(m_name), std::size(info->achName) - 1), info->achName);
  return com::CopyTo(ComPtr(&m_filter), &info->pFilter);
}

HRESULT STDMETHODCALLTYPE Pin::QueryDirection(PIN_DIRECTION* direction) {
  if (direction == nullptr) {
    return E_POINTER;
  }
  *direction = m_direction;
  return S_OK;
}

HRESULT STDMETHODCALLTYPE Pin::QueryId(LPWSTR* /*id*/) { return E_NOTIMPL; }

HRESULT STDMETHODCALLTYPE Pin::QueryAccept(const AM_MEDIA_TYPE* type) {
  if (type == nullptr) {
    return E_POINTER;
  }
  return com::CatchToHresult([&] { return Accepts(*type) ? S_OK : S_FALSE; });
}

HRESULT STDMETHODCALLTYPE Pin::EnumMediaTypes(IEnumMediaTypes** enumerator) {
  if (enumerator == nullptr) {
    return E_POINTER;
  }
  *enumerator = nullptr;
  return com::CatchToHresult([&] {
    *enumerator = EnumerateTypes(Types()).Detach();
    return S_OK;
  });
}

HRESULT STDMETHODCALLTYPE Pin::QueryInternalConnections(IPin** /*pins*/, ULONG* /*count*/) {
  return E_NOTIMPL;
}
HRESULT STDMETHODCALLTYPE Pin::EndOfStream() { return m_direction == PINDIR_INPUT ? S_OK : E_UNEXPECTED; }
HRESULT STDMETHODCALLTYPE Pin::BeginFlush() { return E_UNEXPECTED; }
HRESULT STDMETHODCALLTYPE Pin::EndFlush() { return E_UNEXPECTED; }
HRESULT STDMETHODCALLTYPE Pin::NewSegment(REFERENCE_TIME /*start*/, REFERENCE_TIME /*stop*/,
                                          double /*rate*/) {
  return S_OK;
}

void Pin::SetConnection(IPin* peer, const AM_MEDIA_TYPE& type) {
  m_type = MediaType(type);
  m_peer = ComPtr<IPin>(peer);
}

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
    // A complete type is used as it is; a partial one selects from the types of this pin. Input pins have
    // none.
    if (type != nullptr && type->formattype != GUID_NULL && type->pbFormat != nullptr) {
      return Accepts(*type) ? TryType(*receiver, *type) : VFW_E_TYPE_NOT_ACCEPTED;
    }
    for (const MediaType& candidate : Types()) {
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
    ReleaseConnection();
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
  wanted.cBuffers = std::max(wanted.cBuffers, kMinBuffers);
  wanted.cbBuffer = std::max(wanted.cbBuffer, static_cast<LONG>(SampleSize(type)));
  wanted.cbAlign = std::max(wanted.cbAlign, kMinAlignment);
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

void OutputPin::ReleaseConnection() {
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

HRESULT STDMETHODCALLTYPE InputPin::Connect(IPin* /*receiver*/, const AM_MEDIA_TYPE* /*type*/) {
  return E_UNEXPECTED;
}

HRESULT STDMETHODCALLTYPE InputPin::ReceiveConnection(IPin* connector, const AM_MEDIA_TYPE* type) {
  if (connector == nullptr || type == nullptr) {
    return E_POINTER;
  }
  return com::CatchToHresult([&]() -> HRESULT {
    if (IsConnected()) {
      return VFW_E_ALREADY_CONNECTED;
    }
    if (Owner().State() != State_Stopped) {
      return VFW_E_NOT_STOPPED;
    }
    if (!Accepts(*type)) {
      return VFW_E_TYPE_NOT_ACCEPTED;
    }
    SetConnection(connector, *type);
    return S_OK;
  });
}

HRESULT STDMETHODCALLTYPE InputPin::GetAllocator(IMemAllocator** allocator) {
  if (allocator == nullptr) {
    return E_POINTER;
  }
  *allocator = nullptr;
  return VFW_E_NO_ALLOCATOR;
}

HRESULT STDMETHODCALLTYPE InputPin::NotifyAllocator(IMemAllocator* allocator, BOOL /*isReadOnly*/) {
  return allocator == nullptr ? E_POINTER : S_OK;
}

HRESULT STDMETHODCALLTYPE InputPin::GetAllocatorRequirements(ALLOCATOR_PROPERTIES* /*properties*/) {
  return E_NOTIMPL;
}

HRESULT STDMETHODCALLTYPE InputPin::Receive(IMediaSample* sample) {
  if (sample == nullptr) {
    return E_POINTER;
  }
  if (Owner().State() == State_Stopped) {
    return VFW_E_WRONG_STATE;
  }
  return com::CatchToHresult([&] { return Process(*sample); });
}

HRESULT STDMETHODCALLTYPE InputPin::ReceiveMultiple(IMediaSample** samples, LONG count, LONG* processed) {
  if (samples == nullptr || processed == nullptr) {
    return E_POINTER;
  }
  HRESULT hr = S_OK;
  for (*processed = 0; *processed < count && hr == S_OK; ++*processed) {
    hr = Receive(samples[*processed]);
    if (hr != S_OK) {
      return hr;
    }
  }
  return hr;
}

std::span<BYTE> DataOf(IMediaSample& sample) {
  const LONG length = sample.GetActualDataLength();
  return BufferOf(sample).first(static_cast<std::size_t>(std::max<LONG>(length, 0)));
}

std::span<BYTE> BufferOf(IMediaSample& sample) {
  BYTE* bytes = nullptr;
  if (FAILED(sample.GetPointer(&bytes)) || bytes == nullptr) {
    return {};
  }
  return {bytes, static_cast<std::size_t>(sample.GetSize())};
}

}  // namespace fixtures
