// COM's functions: initialisation, class objects, bind contexts and task memory.
#include "com/Com.h"

#include <cstdlib>

#include "com/ComObject.h"
#include "devices/DeviceEnumerator.h"
#include "graph/FilterGraph.h"
#include "graph/SampleGrabber.h"

namespace com {

namespace {

constexpr HRESULT CLASS_E_NOAGGREGATION = ResultCode(0x80040110);
constexpr DWORD kTaskAllocator = 1;

// Nesting of CoInitialize on this thread. Only the results depend on it.
thread_local unsigned t_initialised = 0;

std::atomic<std::uint64_t>& LiveTaskBlockCount() {
  static std::atomic<std::uint64_t> count{0};
  return count;
}

class BindContext : public ComObject<IBindCtx> {};

class TaskAllocator : public ComObject<IMalloc> {
 public:
  void STDMETHODCALLTYPE Free(void* block) override { CoTaskMemFree(block); }
};

template <typename Object>
HRESULT Create(REFIID iid, void** out) {
  return MakeComObject<Object>()->QueryInterface(iid, out);
}

}  // namespace

std::atomic<std::uint64_t>& LiveObjectCount() {
  static std::atomic<std::uint64_t> count{0};
  return count;
}

std::uint64_t LiveObjects() { return LiveObjectCount(); }

std::uint64_t LiveTaskBlocks() { return LiveTaskBlockCount(); }

}  // namespace com

NUVEQ_PLATFORM_EXPORT HRESULT WINAPI CoInitialize(LPVOID /*reserved*/) {
  return ++com::t_initialised == 1 ? S_OK : S_FALSE;
}

NUVEQ_PLATFORM_EXPORT void WINAPI CoUninitialize() {
  if (com::t_initialised > 0) {
    --com::t_initialised;
  }
}

NUVEQ_PLATFORM_EXPORT HRESULT WINAPI CoCreateInstance(REFCLSID classId, LPUNKNOWN outer, DWORD context,
                                                      REFIID iid, LPVOID* object) {
  if (object == nullptr) {
    return E_POINTER;
  }
  *object = nullptr;
  if (outer != nullptr) {
    return com::CLASS_E_NOAGGREGATION;
  }
  if ((context & CLSCTX_INPROC_SERVER) == 0) {
    return REGDB_E_CLASSNOTREG;
  }
  return com::CatchToHresult([&] {
    if (classId == CLSID_SystemDeviceEnum) {
      return com::Create<devices::DeviceEnumerator>(iid, object);
    }
    if (classId == CLSID_FilterGraph) {
      return com::Create<graph::FilterGraph>(iid, object);
    }
    if (classId == CLSID_SampleGrabber) {
      return com::Create<graph::SampleGrabber>(iid, object);
    }
    return REGDB_E_CLASSNOTREG;
  });
}

NUVEQ_PLATFORM_EXPORT HRESULT WINAPI CreateBindCtx(DWORD reserved, IBindCtx** context) {
  if (context == nullptr) {
    return E_POINTER;
  }
  *context = nullptr;
  if (reserved != 0) {
    return E_INVALIDARG;
  }
  return com::CatchToHresult([&] { return com::CopyTo(com::MakeComObject<com::BindContext>(), context); });
}

NUVEQ_PLATFORM_EXPORT LPVOID WINAPI CoTaskMemAlloc(std::size_t size) {
  void* const block = std::malloc(size);
  if (block != nullptr) {
    ++com::LiveTaskBlockCount();
  }
  return block;
}

NUVEQ_PLATFORM_EXPORT void WINAPI CoTaskMemFree(LPVOID block) {
  if (block != nullptr) {
    --com::LiveTaskBlockCount();
    std::free(block);
  }
}

NUVEQ_PLATFORM_EXPORT HRESULT WINAPI CoGetMalloc(DWORD context, IMalloc** allocator) {
  if (allocator == nullptr) {
    return E_POINTER;
  }
  *allocator = nullptr;
  if (context != com::kTaskAllocator) {
    return E_INVALIDARG;
  }
  return com::CatchToHresult(
      [&] { return com::CopyTo(com::MakeComObject<com::TaskAllocator>(), allocator); });
}
