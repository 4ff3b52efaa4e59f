// Task memory, counted.
#include <cstdlib>

#include "com/ComObject.h"
#include "graph/StreamStats.h"

namespace {

constexpr DWORD kTaskAllocator = 1;

std::atomic<std::uint64_t>& LiveTaskBlockCount() {
  static std::atomic<std::uint64_t> count{0};
  return count;
}

class TaskAllocator : public ComObject<IMalloc> {
 public:
  void STDMETHODCALLTYPE Free(void* block) override { CoTaskMemFree(block); }
};

}  // namespace

std::uint64_t LiveTaskBlocks() { return LiveTaskBlockCount(); }

NUVEQ_PLATFORM_EXPORT LPVOID WINAPI CoTaskMemAlloc(std::size_t size) {
  void* const block = std::malloc(size);
  if (block != nullptr) {
    ++LiveTaskBlockCount();
  }
  return block;
}

NUVEQ_PLATFORM_EXPORT void WINAPI CoTaskMemFree(LPVOID block) {
  if (block != nullptr) {
    --LiveTaskBlockCount();
    std::free(block);
  }
}

NUVEQ_PLATFORM_EXPORT HRESULT WINAPI CoGetMalloc(DWORD context, IMalloc** allocator) {
  if (allocator == nullptr) {
    return E_POINTER;
  }
  *allocator = nullptr;
  if (context != kTaskAllocator) {
    return E_INVALIDARG;
  }
  return Guarded([&] { return HandOut(MakeObject<TaskAllocator>(), allocator); });
}
