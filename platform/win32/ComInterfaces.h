// COM for systems that do not bring it: the interfaces and functions that the library calls, and of each
// interface only the methods that it calls. The implementations are this project's own, so the tables of
// methods need not match those of another system.
//
// Rules of COM hold throughout: an interface that is handed out carries a reference of the receiver's;
// an out pointer is null after a failure; interfaces may be called from any thread unless a comment at the
// implementation says otherwise.
#pragma once

#include <cstddef>

#include "win32/WindowsTypes.h"

struct IUnknown {
  // S_OK and a reference, E_NOINTERFACE, or E_POINTER for a null out pointer.
  virtual HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) = 0;
  // Both answer the new count, which is good for tests and diagnostics only.
  virtual ULONG STDMETHODCALLTYPE AddRef() = 0;
  virtual ULONG STDMETHODCALLTYPE Release() = 0;
};
using LPUNKNOWN = IUnknown*;

constexpr IID IID_IUnknown{0x00000000, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

namespace com {

// The IID of an interface, like __uuidof on Windows; specialised next to each IID. Interfaces without a
// specialisation are available only through IUnknown.
template <typename Interface>
inline constexpr IID kInterfaceId = IID_IUnknown;

}  // namespace com

// The task allocator.
struct IMalloc : IUnknown {
  virtual void STDMETHODCALLTYPE Free(void* block) = 0;
};

// The context of a naming operation; the library only passes it along.
struct IBindCtx : IUnknown {};

// Names one device.
struct IMoniker : IUnknown {
  // Makes the named object; S_OK and a reference to the interface asked for.
  virtual HRESULT STDMETHODCALLTYPE BindToObject(IBindCtx* context, IMoniker* left, REFIID iid,
                                                 void** object) = 0;
  // The terminated name in task memory, the caller's to free.
  virtual HRESULT STDMETHODCALLTYPE GetDisplayName(IBindCtx* context, IMoniker* left, LPOLESTR* name) = 0;
};

struct IEnumMoniker : IUnknown {
  // S_OK while it hands out as many as asked for, S_FALSE at the end. fetched may be null for count 1.
  virtual HRESULT STDMETHODCALLTYPE Next(ULONG count, IMoniker** monikers, ULONG* fetched) = 0;
  virtual HRESULT STDMETHODCALLTYPE Reset() = 0;
};

// Contexts of CoCreateInstance.
constexpr DWORD CLSCTX_INPROC_SERVER = 1;
constexpr DWORD CLSCTX_INPROC_HANDLER = 2;

extern "C" {

// COM's set-up and end on the calling thread. S_FALSE: it was set up already. Calls are balanced.
HRESULT WINAPI CoInitialize(LPVOID reserved);
void WINAPI CoUninitialize();

// Makes an object of a class; REGDB_E_CLASSNOTREG for an unknown one.
HRESULT WINAPI CoCreateInstance(REFCLSID classId, LPUNKNOWN outer, DWORD context, REFIID iid, LPVOID* object);

// Task memory: blocks that one side allocates and the other frees. Freeing null does nothing.
LPVOID WINAPI CoTaskMemAlloc(std::size_t size);
void WINAPI CoTaskMemFree(LPVOID block);

// The task allocator as an object; context is 1.
HRESULT WINAPI CoGetMalloc(DWORD context, IMalloc** allocator);

// A new, empty context; reserved is 0.
HRESULT WINAPI CreateBindCtx(DWORD reserved, IBindCtx** context);

}  // extern "C"
