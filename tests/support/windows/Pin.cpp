#include "support/windows/Pin.h"

#include <algorithm>
#include <cwchar>
#include <iterator>

namespace fixtures {

HRESULT STDMETHODCALLTYPE Pin::Disconnect() {
  if (m_filter.State() == State_Running) {
    return VFW_E_NOT_STOPPED;
  }
  // Where one filter cannot be paused Wine's graph leaves the others as they are, and tries for ever to
  // disconnect them when it goes.
  m_filter.Stop();
  if (!m_peer) {
    return S_FALSE;
  }
  m_peer.Reset();
  m_type = MediaType();
  LetGo();
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

HRESULT STDMETHODCALLTYPE Pin::QueryId(LPWSTR* id) {
  if (id == nullptr) {
    return E_POINTER;
  }
  const std::size_t length = std::wcslen(m_name) + 1;
  *id = static_cast<LPWSTR>(CoTaskMemAlloc(length * sizeof(wchar_t)));
  if (*id == nullptr) {
    return E_OUTOFMEMORY;
  }
  std::copy_n(m_name, length, *id);
  return S_OK;
}

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
  return com::CatchToHresult([&] { return Take(*sample); });
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

std::span<BYTE> BytesOf(IMediaSample& sample) {
  const LONG length = sample.GetActualDataLength();
  return RoomOf(sample).first(static_cast<std::size_t>(std::max<LONG>(length, 0)));
}

std::span<BYTE> RoomOf(IMediaSample& sample) {
  BYTE* bytes = nullptr;
  if (FAILED(sample.GetPointer(&bytes)) || bytes == nullptr) {
    return {};
  }
  return {bytes, static_cast<std::size_t>(sample.GetSize())};
}

}  // namespace fixtures
