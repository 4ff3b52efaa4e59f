// Base classes of the fixtures' pins. Connections change only while the filter is stopped, so streaming code
// reads them without a lock.
#pragma once

#include <functional>
#include <span>
#include <vector>

#include "support/windows/Filter.h"
#include "support/windows/VideoMediaType.h"

namespace fixtures {

class Pin : public com::ComPart<IPin> {
 public:
  Pin(Filter& filter, PIN_DIRECTION direction, const wchar_t* name)
      : ComPart(filter), m_filter(filter), m_direction(direction), m_name(name) {}

  HRESULT STDMETHODCALLTYPE Disconnect() override;
  HRESULT STDMETHODCALLTYPE ConnectedTo(IPin** pin) override;
  HRESULT STDMETHODCALLTYPE ConnectionMediaType(AM_MEDIA_TYPE* type) override;
  HRESULT STDMETHODCALLTYPE QueryPinInfo(PIN_INFO* info) override;
  HRESULT STDMETHODCALLTYPE QueryDirection(PIN_DIRECTION* direction) override;
  HRESULT STDMETHODCALLTYPE QueryId(LPWSTR* id) override;
  HRESULT STDMETHODCALLTYPE QueryAccept(const AM_MEDIA_TYPE* type) override;
  HRESULT STDMETHODCALLTYPE EnumMediaTypes(IEnumMediaTypes** enumerator) override;
  // E_NOTIMPL: every input pin is connected to every output pin.
  HRESULT STDMETHODCALLTYPE QueryInternalConnections(IPin** pins, ULONG* count) override;
  HRESULT STDMETHODCALLTYPE EndOfStream() override;
  HRESULT STDMETHODCALLTYPE BeginFlush() override;
  HRESULT STDMETHODCALLTYPE EndFlush() override;
  HRESULT STDMETHODCALLTYPE NewSegment(REFERENCE_TIME start, REFERENCE_TIME stop, double rate) override;

  bool IsConnected() const { return static_cast<bool>(m_peer); }
  const AM_MEDIA_TYPE& Type() const { return m_type.Get(); }

 protected:
  // The supported types, in order of preference.
  virtual std::vector<MediaType> Types() { return {}; }
  virtual bool Accepts(const AM_MEDIA_TYPE& type) = 0;
  // Called after a disconnect.
  virtual void ReleaseConnection() {}

  void SetConnection(IPin* peer, const AM_MEDIA_TYPE& type);
  Filter& Owner() const { return m_filter; }
  IPin* Peer() const { return m_peer.Get(); }

 private:
  Filter& m_filter;
  const PIN_DIRECTION m_direction;
  const wchar_t* const m_name;
  ComPtr<IPin> m_peer;
  MediaType m_type;
};

// Delivers samples in buffers of the system's memory allocator.
class OutputPin : public Pin {
 public:
  OutputPin(Filter& filter, const wchar_t* name) : Pin(filter, PINDIR_OUTPUT, name) {}

  HRESULT STDMETHODCALLTYPE Connect(IPin* receiver, const AM_MEDIA_TYPE* type) override;
  HRESULT STDMETHODCALLTYPE ReceiveConnection(IPin* connector, const AM_MEDIA_TYPE* type) override;

  // Allocates the buffers. S_OK without a connection.
  HRESULT Commit();
  // Frees the buffers; a blocked GetSample fails.
  void Decommit();
  // Blocks until a buffer is free.
  HRESULT GetSample(ComPtr<IMediaSample>& sample);
  // Returns the result of the receiver.
  HRESULT Deliver(IMediaSample& sample);
  void DeliverEndOfStream();

 protected:
  // Buffer size for a type, in bytes.
  virtual std::size_t SampleSize(const AM_MEDIA_TYPE& type) = 0;
  bool Accepts(const AM_MEDIA_TYPE& type) override;
  void ReleaseConnection() override;

 private:
  HRESULT TryType(IPin& receiver, const AM_MEDIA_TYPE& type);
  HRESULT AgreeOnAllocator(IPin& receiver, const AM_MEDIA_TYPE& type);

  ComPtr<IMemInputPin> m_receiver;
  ComPtr<IMemAllocator> m_allocator;
};

class InputPin : public WithInterface<Pin, IMemInputPin> {
 public:
  InputPin(Filter& filter, const wchar_t* name) : WithInterface(filter, PINDIR_INPUT, name) {}

  HRESULT STDMETHODCALLTYPE Connect(IPin* receiver, const AM_MEDIA_TYPE* type) override;
  HRESULT STDMETHODCALLTYPE ReceiveConnection(IPin* connector, const AM_MEDIA_TYPE* type) override;
  HRESULT STDMETHODCALLTYPE BeginFlush() override { return S_OK; }
  HRESULT STDMETHODCALLTYPE EndFlush() override { return S_OK; }

  HRESULT STDMETHODCALLTYPE GetAllocator(IMemAllocator** allocator) override;
  HRESULT STDMETHODCALLTYPE NotifyAllocator(IMemAllocator* allocator, BOOL isReadOnly) override;
  HRESULT STDMETHODCALLTYPE GetAllocatorRequirements(ALLOCATOR_PROPERTIES* properties) override;
  HRESULT STDMETHODCALLTYPE Receive(IMediaSample* sample) override;
  HRESULT STDMETHODCALLTYPE ReceiveMultiple(IMediaSample** samples, LONG count, LONG* processed) override;
  HRESULT STDMETHODCALLTYPE ReceiveCanBlock() override { return S_OK; }

 protected:
  // Processes a sample. The filter is not stopped; no lock is held.
  virtual HRESULT Process(IMediaSample& sample) = 0;
};

// The data in a sample's buffer.
std::span<BYTE> DataOf(IMediaSample& sample);
// A sample's whole buffer.
std::span<BYTE> BufferOf(IMediaSample& sample);

}  // namespace fixtures
