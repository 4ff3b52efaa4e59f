#include "support/FailingAllocations.h"

#include <dlfcn.h>
#include <link.h>
#include <unwind.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <string_view>
#include <utility>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define SANITIZER_OWNS_MALLOC 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
#define SANITIZER_OWNS_MALLOC 1
#endif
#endif

namespace support {

namespace {

// constinit: allocations happen before static constructors and after static destructors.
constinit std::atomic<FailingAllocations*> failingAllocations = nullptr;
constinit std::mutex failingAllocationsMutex;
// Prevents recursion: finding the caller may allocate.
thread_local bool t_isFindingCaller = false;

// Returns the file name of the shared library that contains the address; empty for the program itself.
const char* FileNameAt(const void* address) {
  dl_find_object found{};
  if (_dl_find_object(const_cast<void*>(address), &found) != 0 || found.dlfo_link_map->l_name == nullptr) {
    return "";
  }
  const char* const path = found.dlfo_link_map->l_name;
  const char* const slash = std::strrchr(path, '/');
  return slash == nullptr ? path : slash + 1;
}

// True for libraries whose allocations count as their caller's.
bool AllocatesForCaller(std::string_view fileName) {
  return fileName.starts_with("libstdc++.") || fileName.starts_with("libc.");
}

struct Search {
  const void* caller = nullptr;
  bool isPastCaller = false;
  const char* found = "";
};

_Unwind_Reason_Code VisitFrame(_Unwind_Context* context, void* argument) {
  auto& search = *static_cast<Search*>(argument);
  // NOLINTNEXTLINE(performance-no-int-to-ptr): the unwinder gives addresses as numbers
  const auto* const address = reinterpret_cast<const void*>(_Unwind_GetIP(context));
  search.isPastCaller = search.isPastCaller || address == search.caller;
  if (!search.isPastCaller) {
    return _URC_NO_REASON;
  }
  const char* const fileName = FileNameAt(address);
  if (AllocatesForCaller(fileName)) {
    return _URC_NO_REASON;
  }
  search.found = fileName;
  return _URC_NORMAL_STOP;
}

// Returns the file name of the library that requested the memory; empty for the program.
const char* FindRequestingLibrary(const void* caller) {
  const char* const fileName = FileNameAt(caller);
  if (!AllocatesForCaller(fileName)) {
    return fileName;
  }
  Search search{caller};
  _Unwind_Backtrace(VisitFrame, &search);
  return search.found;
}

}  // namespace

bool ShouldFailAllocation(const void* caller) noexcept {
  if (failingAllocations.load(std::memory_order_relaxed) == nullptr || t_isFindingCaller) {
    return false;
  }
  t_isFindingCaller = true;
  // Without the lock, because the dynamic linker may take locks of its own.
  const char* const library = FindRequestingLibrary(caller);
  bool shouldFail = false;
  {
    const std::lock_guard lock(failingAllocationsMutex);
    FailingAllocations* const current = failingAllocations;
    shouldFail = current != nullptr && current->CountAllocation(library);
  }
  t_isFindingCaller = false;
  return shouldFail;
}

FailingAllocations::FailingAllocations(std::vector<std::string> names) : m_names(std::move(names)) {
  const std::lock_guard lock(failingAllocationsMutex);
  if (failingAllocations != nullptr) {
    std::abort();
  }
  failingAllocations = this;
}

FailingAllocations::~FailingAllocations() {
  const std::lock_guard lock(failingAllocationsMutex);
  failingAllocations = nullptr;
}

void FailingAllocations::FailNth(std::uint64_t number, Persistence persistence) {
  const std::lock_guard lock(failingAllocationsMutex);
  m_number = number;
  m_persistence = persistence;
  m_count = 0;
  m_failures = 0;
}

void FailingAllocations::FailNothing() {
  const std::lock_guard lock(failingAllocationsMutex);
  m_number = 0;
}

std::uint64_t FailingAllocations::Count() const {
  const std::lock_guard lock(failingAllocationsMutex);
  return m_count;
}

std::uint64_t FailingAllocations::Failures() const {
  const std::lock_guard lock(failingAllocationsMutex);
  return m_failures;
}

bool FailingAllocations::CountAllocation(const char* library) {
  const std::string_view fileName(library);
  const std::string_view stem = fileName.substr(0, fileName.find('.'));
  if (stem.empty() || std::find(m_names.begin(), m_names.end(), stem) == m_names.end()) {
    return false;
  }
  ++m_count;
  const bool isDue = m_persistence == Persistence::kTransient ? m_count == m_number : m_count >= m_number;
  const bool shouldFail = m_number != 0 && isDue;
  m_failures += shouldFail ? 1U : 0U;
  return shouldFail;
}

}  // namespace support

// --- Replacements of the allocation functions, for the whole process ---

// Never inlined: the return address identifies the caller, and in a unity build gcc would report the inlined
// free() as a mismatched deallocation.
#define EXPORTED __attribute__((visibility("default"), noinline))

using support::ShouldFailAllocation;

#if defined(SANITIZER_OWNS_MALLOC)

bool support::FailingAllocations::ReachesMalloc() { return false; }

namespace {

void* AllocateFromHeap(std::size_t size) { return std::malloc(size); }

}  // namespace

#else

bool support::FailingAllocations::ReachesMalloc() { return true; }

// NOLINTBEGIN(bugprone-reserved-identifier): glibc's names of the original functions
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

void* AllocateFromHeap(std::size_t size) { return __libc_malloc(size); }

void* FailWithNoMemory() {
  errno = ENOMEM;
  return nullptr;
}

}  // namespace

// The blocks come from the C library's heap, so that the other functions of the heap need no replacement.
extern "C" {
EXPORTED void* malloc(std::size_t size) noexcept {
  return ShouldFailAllocation(__builtin_return_address(0)) ? FailWithNoMemory() : __libc_malloc(size);
}
EXPORTED void* calloc(std::size_t count, std::size_t size) noexcept {
  return ShouldFailAllocation(__builtin_return_address(0)) ? FailWithNoMemory() : __libc_calloc(count, size);
}
EXPORTED void* realloc(void* block, std::size_t size) noexcept {
  return ShouldFailAllocation(__builtin_return_address(0)) ? FailWithNoMemory() : __libc_realloc(block, size);
}
}

#endif

namespace {

void* AllocateBlock(std::size_t size, const void* caller) noexcept {
  return ShouldFailAllocation(caller) ? nullptr : AllocateFromHeap(std::max(size, std::size_t{1}));
}

void* AllocateAlignedBlock(std::size_t size, std::align_val_t alignment, const void* caller) noexcept {
  void* block = nullptr;
  const bool hasFailed =
      ShouldFailAllocation(caller) ||
      posix_memalign(&block, std::max(static_cast<std::size_t>(alignment), sizeof(void*)), size) != 0;
  return hasFailed ? nullptr : block;
}

void* ThrowIfNull(void* block) {
  if (block == nullptr) {
    throw std::bad_alloc();
  }
  return block;
}

}  // namespace

#define ALLOCATION_CALLER __builtin_return_address(0)

EXPORTED void* operator new(std::size_t size) { return ThrowIfNull(AllocateBlock(size, ALLOCATION_CALLER)); }
EXPORTED void* operator new[](std::size_t size) {
  return ThrowIfNull(AllocateBlock(size, ALLOCATION_CALLER));
}
EXPORTED void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return AllocateBlock(size, ALLOCATION_CALLER);
}
EXPORTED void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return AllocateBlock(size, ALLOCATION_CALLER);
}
EXPORTED void* operator new(std::size_t size, std::align_val_t alignment) {
  return ThrowIfNull(AllocateAlignedBlock(size, alignment, ALLOCATION_CALLER));
}
EXPORTED void* operator new[](std::size_t size, std::align_val_t alignment) {
  return ThrowIfNull(AllocateAlignedBlock(size, alignment, ALLOCATION_CALLER));
}
EXPORTED void* operator new(std::size_t size, std::align_val_t alignment,
                            const std::nothrow_t& /*tag*/) noexcept {
  return AllocateAlignedBlock(size, alignment, ALLOCATION_CALLER);
}
EXPORTED void* operator new[](std::size_t size, std::align_val_t alignment,
                              const std::nothrow_t& /*tag*/) noexcept {
  return AllocateAlignedBlock(size, alignment, ALLOCATION_CALLER);
}

EXPORTED void operator delete(void* block) noexcept { std::free(block); }
EXPORTED void operator delete[](void* block) noexcept { std::free(block); }
EXPORTED void operator delete(void* block, std::size_t /*size*/) noexcept { std::free(block); }
EXPORTED void operator delete[](void* block, std::size_t /*size*/) noexcept { std::free(block); }
EXPORTED void operator delete(void* block, const std::nothrow_t& /*tag*/) noexcept { std::free(block); }
EXPORTED void operator delete[](void* block, const std::nothrow_t& /*tag*/) noexcept { std::free(block); }
EXPORTED void operator delete(void* block, std::align_val_t /*alignment*/) noexcept { std::free(block); }
EXPORTED void operator delete[](void* block, std::align_val_t /*alignment*/) noexcept { std::free(block); }
EXPORTED void operator delete(void* block, std::size_t /*size*/, std::align_val_t /*alignment*/) noexcept {
  std::free(block);
}
EXPORTED void operator delete[](void* block, std::size_t /*size*/, std::align_val_t /*alignment*/) noexcept {
  std::free(block);
}
EXPORTED void operator delete(void* block, std::align_val_t /*alignment*/,
                              const std::nothrow_t& /*tag*/) noexcept {
  std::free(block);
}
EXPORTED void operator delete[](void* block, std::align_val_t /*alignment*/,
                                const std::nothrow_t& /*tag*/) noexcept {
  std::free(block);
}
