// The Windows interfaces. Methods that the library does not call return E_NOTIMPL and report a misuse.
#pragma once

#include <string>

#include "DirectShow.h"
#include "support/scripted/ScriptedPlatform.h"

namespace scripted {

inline HRESULT NotCalled(const char* method) {
  Platform::Get().NoteMisuse(std::string(method) + " is called");
  return E_NOTIMPL;
}

// Default: the library calls all methods.
template <typename Interface>
struct Whole : Interface {};

// Methods of the common bases IPersist and IDispatch.
template <typename Interface>
struct WholePersist : Interface {
  HRESULT STDMETHODCALLTYPE GetClassID(CLSID*) override { return NotCalled("IPersist::GetClassID"); }
};

template <typename Interface>
struct WholeDispatch : Interface {
  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT*) override {
    return NotCalled("IDispatch::GetTypeInfoCount");
  }
  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override {
    return NotCalled("IDispatch::GetTypeInfo");
  }
  HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR*, UINT, LCID, DISPID*) override {
    return NotCalled("IDispatch::GetIDsOfNames");
  }
  HRESULT STDMETHODCALLTYPE Invoke(DISPID, REFIID, LCID, WORD, DISPPARAMS*, VARIANT*, EXCEPINFO*,
                                   UINT*) override {
    return NotCalled("IDispatch::Invoke");
  }
};

template <>
struct Whole<IMalloc> : IMalloc {
  void* STDMETHODCALLTYPE Alloc(SIZE_T) override { return NotCalled("IMalloc::Alloc"), nullptr; }
  void* STDMETHODCALLTYPE Realloc(void*, SIZE_T) override { return NotCalled("IMalloc::Realloc"), nullptr; }
  SIZE_T STDMETHODCALLTYPE GetSize(void*) override { return NotCalled("IMalloc::GetSize"), 0; }
  int STDMETHODCALLTYPE DidAlloc(void*) override { return NotCalled("IMalloc::DidAlloc"), 0; }
  void STDMETHODCALLTYPE HeapMinimize() override { NotCalled("IMalloc::HeapMinimize"); }
};

template <>
struct Whole<IBindCtx> : IBindCtx {
  HRESULT STDMETHODCALLTYPE RegisterObjectBound(IUnknown*) override {
    return NotCalled("IBindCtx::RegisterObjectBound");
  }
  HRESULT STDMETHODCALLTYPE RevokeObjectBound(IUnknown*) override {
    return NotCalled("IBindCtx::RevokeObjectBound");
  }
  HRESULT STDMETHODCALLTYPE ReleaseBoundObjects() override {
    return NotCalled("IBindCtx::ReleaseBoundObjects");
  }
  HRESULT STDMETHODCALLTYPE SetBindOptions(BIND_OPTS*) override {
    return NotCalled("IBindCtx::SetBindOptions");
  }
  HRESULT STDMETHODCALLTYPE GetBindOptions(BIND_OPTS*) override {
    return NotCalled("IBindCtx::GetBindOptions");
  }
  HRESULT STDMETHODCALLTYPE GetRunningObjectTable(IRunningObjectTable**) override {
    return NotCalled("IBindCtx::GetRunningObjectTable");
  }
  HRESULT STDMETHODCALLTYPE RegisterObjectParam(LPOLESTR, IUnknown*) override {
    return NotCalled("IBindCtx::RegisterObjectParam");
  }
  HRESULT STDMETHODCALLTYPE GetObjectParam(LPOLESTR, IUnknown**) override {
    return NotCalled("IBindCtx::GetObjectParam");
  }
  HRESULT STDMETHODCALLTYPE EnumObjectParam(IEnumString**) override {
    return NotCalled("IBindCtx::EnumObjectParam");
  }
  HRESULT STDMETHODCALLTYPE RevokeObjectParam(LPOLESTR) override {
    return NotCalled("IBindCtx::RevokeObjectParam");
  }
};

template <>
struct Whole<IMoniker> : WholePersist<IMoniker> {
  HRESULT STDMETHODCALLTYPE IsDirty() override { return NotCalled("IMoniker::IsDirty"); }
  HRESULT STDMETHODCALLTYPE Load(IStream*) override { return NotCalled("IMoniker::Load"); }
  HRESULT STDMETHODCALLTYPE Save(IStream*, BOOL) override { return NotCalled("IMoniker::Save"); }
  HRESULT STDMETHODCALLTYPE GetSizeMax(ULARGE_INTEGER*) override { return NotCalled("IMoniker::GetSizeMax"); }
  HRESULT STDMETHODCALLTYPE BindToStorage(IBindCtx*, IMoniker*, REFIID, void**) override {
    return NotCalled("IMoniker::BindToStorage");
  }
  HRESULT STDMETHODCALLTYPE Reduce(IBindCtx*, DWORD, IMoniker**, IMoniker**) override {
    return NotCalled("IMoniker::Reduce");
  }
  HRESULT STDMETHODCALLTYPE ComposeWith(IMoniker*, BOOL, IMoniker**) override {
    return NotCalled("IMoniker::ComposeWith");
  }
  HRESULT STDMETHODCALLTYPE Enum(BOOL, IEnumMoniker**) override { return NotCalled("IMoniker::Enum"); }
  HRESULT STDMETHODCALLTYPE IsEqual(IMoniker*) override { return NotCalled("IMoniker::IsEqual"); }
  HRESULT STDMETHODCALLTYPE Hash(DWORD*) override { return NotCalled("IMoniker::Hash"); }
  HRESULT STDMETHODCALLTYPE IsRunning(IBindCtx*, IMoniker*, IMoniker*) override {
    return NotCalled("IMoniker::IsRunning");
  }
  HRESULT STDMETHODCALLTYPE GetTimeOfLastChange(IBindCtx*, IMoniker*, FILETIME*) override {
    return NotCalled("IMoniker::GetTimeOfLastChange");
  }
  HRESULT STDMETHODCALLTYPE Inverse(IMoniker**) override { return NotCalled("IMoniker::Inverse"); }
  HRESULT STDMETHODCALLTYPE CommonPrefixWith(IMoniker*, IMoniker**) override {
    return NotCalled("IMoniker::CommonPrefixWith");
  }
  HRESULT STDMETHODCALLTYPE RelativePathTo(IMoniker*, IMoniker**) override {
    return NotCalled("IMoniker::RelativePathTo");
  }
  HRESULT STDMETHODCALLTYPE ParseDisplayName(IBindCtx*, IMoniker*, LPOLESTR, ULONG*, IMoniker**) override {
    return NotCalled("IMoniker::ParseDisplayName");
  }
  HRESULT STDMETHODCALLTYPE IsSystemMoniker(DWORD*) override {
    return NotCalled("IMoniker::IsSystemMoniker");
  }
};

template <>
struct Whole<IEnumMoniker> : IEnumMoniker {
  HRESULT STDMETHODCALLTYPE Skip(ULONG) override { return NotCalled("IEnumMoniker::Skip"); }
  HRESULT STDMETHODCALLTYPE Clone(IEnumMoniker**) override { return NotCalled("IEnumMoniker::Clone"); }
};

template <>
struct Whole<IEnumMediaTypes> : IEnumMediaTypes {
  HRESULT STDMETHODCALLTYPE Skip(ULONG) override { return NotCalled("IEnumMediaTypes::Skip"); }
  HRESULT STDMETHODCALLTYPE Reset() override { return NotCalled("IEnumMediaTypes::Reset"); }
  HRESULT STDMETHODCALLTYPE Clone(IEnumMediaTypes**) override { return NotCalled("IEnumMediaTypes::Clone"); }
};

template <>
struct Whole<IEnumPins> : IEnumPins {
  HRESULT STDMETHODCALLTYPE Skip(ULONG) override { return NotCalled("IEnumPins::Skip"); }
  HRESULT STDMETHODCALLTYPE Reset() override { return NotCalled("IEnumPins::Reset"); }
  HRESULT STDMETHODCALLTYPE Clone(IEnumPins**) override { return NotCalled("IEnumPins::Clone"); }
};

template <>
struct Whole<IPin> : IPin {
  HRESULT STDMETHODCALLTYPE Connect(IPin*, const AM_MEDIA_TYPE*) override {
    return NotCalled("IPin::Connect");
  }
  HRESULT STDMETHODCALLTYPE ReceiveConnection(IPin*, const AM_MEDIA_TYPE*) override {
    return NotCalled("IPin::ReceiveConnection");
  }
  HRESULT STDMETHODCALLTYPE Disconnect() override { return NotCalled("IPin::Disconnect"); }
  HRESULT STDMETHODCALLTYPE ConnectedTo(IPin**) override { return NotCalled("IPin::ConnectedTo"); }
  HRESULT STDMETHODCALLTYPE ConnectionMediaType(AM_MEDIA_TYPE*) override {
    return NotCalled("IPin::ConnectionMediaType");
  }
  HRESULT STDMETHODCALLTYPE QueryId(LPWSTR*) override { return NotCalled("IPin::QueryId"); }
  HRESULT STDMETHODCALLTYPE QueryAccept(const AM_MEDIA_TYPE*) override {
    return NotCalled("IPin::QueryAccept");
  }
  HRESULT STDMETHODCALLTYPE QueryInternalConnections(IPin**, ULONG*) override {
    return NotCalled("IPin::QueryInternalConnections");
  }
  HRESULT STDMETHODCALLTYPE EndOfStream() override { return NotCalled("IPin::EndOfStream"); }
  HRESULT STDMETHODCALLTYPE BeginFlush() override { return NotCalled("IPin::BeginFlush"); }
  HRESULT STDMETHODCALLTYPE EndFlush() override { return NotCalled("IPin::EndFlush"); }
  HRESULT STDMETHODCALLTYPE NewSegment(REFERENCE_TIME, REFERENCE_TIME, double) override {
    return NotCalled("IPin::NewSegment");
  }
};

template <>
struct Whole<IAMStreamConfig> : IAMStreamConfig {
  HRESULT STDMETHODCALLTYPE GetNumberOfCapabilities(int*, int*) override {
    return NotCalled("IAMStreamConfig::GetNumberOfCapabilities");
  }
  HRESULT STDMETHODCALLTYPE GetStreamCaps(int, AM_MEDIA_TYPE**, BYTE*) override {
    return NotCalled("IAMStreamConfig::GetStreamCaps");
  }
};

template <>
struct Whole<IBaseFilter> : WholePersist<IBaseFilter> {
  HRESULT STDMETHODCALLTYPE Stop() override { return NotCalled("IBaseFilter::Stop"); }
  HRESULT STDMETHODCALLTYPE Pause() override { return NotCalled("IBaseFilter::Pause"); }
  HRESULT STDMETHODCALLTYPE Run(REFERENCE_TIME) override { return NotCalled("IBaseFilter::Run"); }
  HRESULT STDMETHODCALLTYPE GetState(DWORD, FILTER_STATE*) override {
    return NotCalled("IBaseFilter::GetState");
  }
  HRESULT STDMETHODCALLTYPE SetSyncSource(IReferenceClock*) override {
    return NotCalled("IBaseFilter::SetSyncSource");
  }
  HRESULT STDMETHODCALLTYPE GetSyncSource(IReferenceClock**) override {
    return NotCalled("IBaseFilter::GetSyncSource");
  }
  HRESULT STDMETHODCALLTYPE FindPin(LPCWSTR, IPin**) override { return NotCalled("IBaseFilter::FindPin"); }
  HRESULT STDMETHODCALLTYPE QueryFilterInfo(FILTER_INFO*) override {
    return NotCalled("IBaseFilter::QueryFilterInfo");
  }
  HRESULT STDMETHODCALLTYPE JoinFilterGraph(IFilterGraph*, LPCWSTR) override {
    return NotCalled("IBaseFilter::JoinFilterGraph");
  }
  HRESULT STDMETHODCALLTYPE QueryVendorInfo(LPWSTR*) override {
    return NotCalled("IBaseFilter::QueryVendorInfo");
  }
};

template <>
struct Whole<IGraphBuilder> : IGraphBuilder {
  HRESULT STDMETHODCALLTYPE RemoveFilter(IBaseFilter*) override {
    return NotCalled("IGraphBuilder::RemoveFilter");
  }
  HRESULT STDMETHODCALLTYPE EnumFilters(IEnumFilters**) override {
    return NotCalled("IGraphBuilder::EnumFilters");
  }
  HRESULT STDMETHODCALLTYPE FindFilterByName(LPCWSTR, IBaseFilter**) override {
    return NotCalled("IGraphBuilder::FindFilterByName");
  }
  HRESULT STDMETHODCALLTYPE ConnectDirect(IPin*, IPin*, const AM_MEDIA_TYPE*) override {
    return NotCalled("IGraphBuilder::ConnectDirect");
  }
  HRESULT STDMETHODCALLTYPE Reconnect(IPin*) override { return NotCalled("IGraphBuilder::Reconnect"); }
  HRESULT STDMETHODCALLTYPE Disconnect(IPin*) override { return NotCalled("IGraphBuilder::Disconnect"); }
  HRESULT STDMETHODCALLTYPE SetDefaultSyncSource() override {
    return NotCalled("IGraphBuilder::SetDefaultSyncSource");
  }
  HRESULT STDMETHODCALLTYPE Render(IPin*) override { return NotCalled("IGraphBuilder::Render"); }
  HRESULT STDMETHODCALLTYPE RenderFile(LPCWSTR, LPCWSTR) override {
    return NotCalled("IGraphBuilder::RenderFile");
  }
  HRESULT STDMETHODCALLTYPE AddSourceFilter(LPCWSTR, LPCWSTR, IBaseFilter**) override {
    return NotCalled("IGraphBuilder::AddSourceFilter");
  }
  HRESULT STDMETHODCALLTYPE SetLogFile(DWORD_PTR) override { return NotCalled("IGraphBuilder::SetLogFile"); }
  HRESULT STDMETHODCALLTYPE Abort() override { return NotCalled("IGraphBuilder::Abort"); }
  HRESULT STDMETHODCALLTYPE ShouldOperationContinue() override {
    return NotCalled("IGraphBuilder::ShouldOperationContinue");
  }
};

template <>
struct Whole<IMediaControl> : WholeDispatch<IMediaControl> {
  HRESULT STDMETHODCALLTYPE Pause() override { return NotCalled("IMediaControl::Pause"); }
  HRESULT STDMETHODCALLTYPE GetState(LONG, OAFilterState*) override {
    return NotCalled("IMediaControl::GetState");
  }
  HRESULT STDMETHODCALLTYPE RenderFile(BSTR) override { return NotCalled("IMediaControl::RenderFile"); }
  HRESULT STDMETHODCALLTYPE AddSourceFilter(BSTR, IDispatch**) override {
    return NotCalled("IMediaControl::AddSourceFilter");
  }
  HRESULT STDMETHODCALLTYPE get_FilterCollection(IDispatch**) override {
    return NotCalled("IMediaControl::get_FilterCollection");
  }
  HRESULT STDMETHODCALLTYPE get_RegFilterCollection(IDispatch**) override {
    return NotCalled("IMediaControl::get_RegFilterCollection");
  }
  HRESULT STDMETHODCALLTYPE StopWhenReady() override { return NotCalled("IMediaControl::StopWhenReady"); }
};

template <>
struct Whole<IMediaEvent> : WholeDispatch<IMediaEvent> {
  HRESULT STDMETHODCALLTYPE GetEventHandle(OAEVENT*) override {
    return NotCalled("IMediaEvent::GetEventHandle");
  }
  HRESULT STDMETHODCALLTYPE GetEvent(LONG*, LONG_PTR*, LONG_PTR*, LONG) override {
    return NotCalled("IMediaEvent::GetEvent");
  }
  HRESULT STDMETHODCALLTYPE CancelDefaultHandling(LONG) override {
    return NotCalled("IMediaEvent::CancelDefaultHandling");
  }
  HRESULT STDMETHODCALLTYPE RestoreDefaultHandling(LONG) override {
    return NotCalled("IMediaEvent::RestoreDefaultHandling");
  }
  HRESULT STDMETHODCALLTYPE FreeEventParams(LONG, LONG_PTR, LONG_PTR) override {
    return NotCalled("IMediaEvent::FreeEventParams");
  }
};

template <>
struct Whole<ISampleGrabber> : ISampleGrabber {
  HRESULT STDMETHODCALLTYPE GetConnectedMediaType(AM_MEDIA_TYPE*) override {
    return NotCalled("ISampleGrabber::GetConnectedMediaType");
  }
  HRESULT STDMETHODCALLTYPE GetCurrentBuffer(LONG*, LONG*) override {
    return NotCalled("ISampleGrabber::GetCurrentBuffer");
  }
  HRESULT STDMETHODCALLTYPE GetCurrentSample(IMediaSample**) override {
    return NotCalled("ISampleGrabber::GetCurrentSample");
  }
};

}  // namespace scripted
