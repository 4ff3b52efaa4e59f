// COM for systems without it: the interfaces, methods and functions that the library calls. Only this project
// implements them, so the method tables need not match those of Windows.
//
// The rules of COM apply: the receiver of an interface releases it; an out pointer is null after a failure;
// interfaces may be called from any thread unless the implementation's comment says otherwise.
#pragma once

#include <cstddef>

#include "win32/WindowsTypes.h"

struct IUnknown {
  // Returns S_OK and a reference, E_NOINTERFACE, or E_POINTER for a null out pointer.
  virtual HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) = 0;
  // Both return the new count, for tests and diagnostics only.
  virtual ULONG STDMETHODCALLTYPE AddRef() = 0;
  virtual ULONG STDMETHODCALLTYPE Release() = 0;
};
using LPUNKNOWN = IUnknown*;

constexpr IID IID_IUnknown{0x00000000, 0x0000, 0x0000, {0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x46}};

namespace com {

// IID of an interface, like __uuidof on Windows. Specialised next to each IID; an interface without a
// specialisation cannot be queried for.
template <typename Interface>
inline constexpr IID kInterfaceId = IID_IUnknown;

}  // namespace com

// An allocator of task memory.
struct IMalloc : IUnknown {
  virtual void STDMETHODCALLTYPE Free(void* block) = 0;
};

// Context of a naming operation. The library only passes it on.
struct IBindCtx : IUnknown {};

// Names one device.
struct IMoniker : IUnknown {
  // Creates the named object and returns a reference to the requested interface.
  virtual HRESULT STDMETHODCALLTYPE BindToObject(IBindCtx* context, IMoniker* left, REFIID iid,
                                                 void** object) = 0;
  // Returns the null-terminated name in task memory, which the caller frees.
  virtual HRESULT STDMETHODCALLTYPE GetDisplayName(IBindCtx* context, IMoniker* left, LPOLESTR* name) = 0;
};

struct IEnumMoniker : IUnknown {
  // Returns S_OK with count elements, or S_FALSE at the end. fetched may be null if count is 1.
  virtual HRESULT STDMETHODCALLTYPE Next(ULONG count, IMoniker** monikers, ULONG* fetched) = 0;
  virtual HRESULT STDMETHODCALLTYPE Reset() = 0;
};

// Contexts of CoCreateInstance.
constexpr DWORD CLSCTX_INPROC_SERVER = 1;
constexpr DWORD CLSCTX_INPROC_HANDLER = 2;

extern "C" {

// Initialise and uninitialise COM on the calling thread; calls are balanced. CoInitialize returns S_FALSE if
// COM was initialised before.
HRESULT WINAPI CoInitialize(LPVOID reserved);
void WINAPI CoUninitialize();

// Creates an object of a class. Returns REGDB_E_CLASSNOTREG for an unknown class.
HRESULT WINAPI CoCreateInstance(REFCLSID classId, LPUNKNOWN outer, DWORD context, REFIID iid, LPVOID* object);

// Task memory: blocks that one component allocates and another frees. Freeing null has no effect.
LPVOID WINAPI CoTaskMemAlloc(std::size_t size);
void WINAPI CoTaskMemFree(LPVOID block);

// Returns the task memory allocator. context is 1.
HRESULT WINAPI CoGetMalloc(DWORD context, IMalloc** allocator);

// Creates an empty context. reserved is 0.
HRESULT WINAPI CreateBindCtx(DWORD reserved, IBindCtx** context);

}  // extern "C"
