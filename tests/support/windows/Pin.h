// The fixtures' pins. Connections are made and undone while the filter is stopped, so what streams reads them
// without a lock.
#pragma once

#include <functional>
#include <span>
#include <vector>

#include "support/windows/Filter.h"
#include "support/windows/VideoMediaType.h"

namespace fixtures {

class Pin : public com::ComPart<IPin> {
 public:
  // name: "Out", which is also its identifier.
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
  // All input pins go to all output pins.
  HRESULT STDMETHODCALLTYPE QueryInternalConnections(IPin** pins, ULONG* count) override;
  HRESULT STDMETHODCALLTYPE EndOfStream() override;
  HRESULT STDMETHODCALLTYPE BeginFlush() override;
  HRESULT STDMETHODCALLTYPE EndFlush() override;
  HRESULT STDMETHODCALLTYPE NewSegment(REFERENCE_TIME start, REFERENCE_TIME stop, double rate) override;

  bool IsConnected() const { return static_cast<bool>(m_peer); }
  const AM_MEDIA_TYPE& Type() const { return m_type.Get(); }

 protected:
  // The types that it offers, its preference first.
  virtual std::vector<MediaType> Types() { return {}; }
  virtual bool Accepts(const AM_MEDIA_TYPE& type) = 0;
  // After a connection has gone.
  virtual void LetGo() {}

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

// Delivers samples in buffers of an allocator that the system makes.
class OutputPin : public Pin {
 public:
  OutputPin(Filter& filter, const wchar_t* name) : Pin(filter, PINDIR_OUTPUT, name) {}

  HRESULT STDMETHODCALLTYPE Connect(IPin* receiver, const AM_MEDIA_TYPE* type) override;
  HRESULT STDMETHODCALLTYPE ReceiveConnection(IPin* connector, const AM_MEDIA_TYPE* type) override;

  // Without a connection there is nothing to do: S_OK.
  HRESULT Commit();
  // Lets a GetSample in progress fail.
  void Decommit();
  HRESULT GetSample(ComPtr<IMediaSample>& sample);
  // What the receiver answers.
  HRESULT Deliver(IMediaSample& sample);
  void DeliverEndOfStream();

 protected:
  // Bytes that a sample of a type needs.
  virtual std::size_t SampleSize(const AM_MEDIA_TYPE& type) = 0;
  bool Accepts(const AM_MEDIA_TYPE& type) override;
  void LetGo() override;

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
  // A sample of a filter that is not stopped. No lock is held.
  virtual HRESULT Take(IMediaSample& sample) = 0;
};

// The bytes of a sample that hold something.
std::span<BYTE> BytesOf(IMediaSample& sample);
// All that a sample has room for.
std::span<BYTE> RoomOf(IMediaSample& sample);

}  // namespace fixtures
