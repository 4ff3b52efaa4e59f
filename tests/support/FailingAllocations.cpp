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

namespace {

// No constructor and no destructor runs for these: memory is asked for before the first and after the last.
constinit std::atomic<FailingAllocations*> failingAllocations = nullptr;
constinit std::mutex failingAllocationsMutex;
// Whoever finds out where an allocation comes from may need memory for that.
thread_local bool t_isLookingAtAllocation = false;

// The file name of what is mapped there; empty for the program itself and for what is no file.
const char* FileNameAt(const void* address) {
  dl_find_object found{};
  if (_dl_find_object(const_cast<void*>(address), &found) != 0 || found.dlfo_link_map->l_name == nullptr) {
    return "";
  }
  const char* const path = found.dlfo_link_map->l_name;
  const char* const slash = std::strrchr(path, '/');
  return slash == nullptr ? path : slash + 1;
}

// These allocate for those who call them.
bool IsOnBehalfOfItsCaller(std::string_view fileName) {
  return fileName.starts_with("libstdc++.") || fileName.starts_with("libc.");
}

struct Search {
  const void* caller = nullptr;
  bool isPastCaller = false;
  const char* found = "";
};

_Unwind_Reason_Code LookAtFrame(_Unwind_Context* context, void* argument) {
  auto& search = *static_cast<Search*>(argument);
  // NOLINTNEXTLINE(performance-no-int-to-ptr): the unwinder gives addresses as numbers
  const auto* const address = reinterpret_cast<const void*>(_Unwind_GetIP(context));
  search.isPastCaller = search.isPastCaller || address == search.caller;
  if (!search.isPastCaller) {
    return _URC_NO_REASON;
  }
  const char* const fileName = FileNameAt(address);
  if (IsOnBehalfOfItsCaller(fileName)) {
    return _URC_NO_REASON;
  }
  search.found = fileName;
  return _URC_NORMAL_STOP;
}

// The file name of the library whose code asked for memory; empty for the program.
const char* WhoAsks(const void* caller) {
  const char* const fileName = FileNameAt(caller);
  if (!IsOnBehalfOfItsCaller(fileName)) {
    return fileName;
  }
  Search search{caller};
  _Unwind_Backtrace(LookAtFrame, &search);
  return search.found;
}

}  // namespace

bool IsAllocationToFail(const void* caller) noexcept {
  if (failingAllocations.load(std::memory_order_relaxed) == nullptr || t_isLookingAtAllocation) {
    return false;
  }
  t_isLookingAtAllocation = true;
  // Not under the lock: the dynamic linker, which has locks of its own, may be asked.
  const char* const library = WhoAsks(caller);
  bool isToFail = false;
  {
    const std::lock_guard lock(failingAllocationsMutex);
    FailingAllocations* const current = failingAllocations;
    isToFail = current != nullptr && current->IsToFail(library);
  }
  t_isLookingAtAllocation = false;
  return isToFail;
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

bool FailingAllocations::IsToFail(const char* library) {
  const std::string_view fileName(library);
  const std::string_view stem = fileName.substr(0, fileName.find('.'));
  if (stem.empty() || std::find(m_names.begin(), m_names.end(), stem) == m_names.end()) {
    return false;
  }
  ++m_count;
  const bool isDue = m_persistence == Persistence::kTransient ? m_count == m_number : m_count >= m_number;
  const bool isToFail = m_number != 0 && isDue;
  m_failures += isToFail ? 1U : 0U;
  return isToFail;
}

// --- What everybody in the process allocates with ---

// Never inlined: the return address identifies the caller, and in a unity build gcc would report the inlined
// free() as a mismatched deallocation.
#define OF_THE_PROCESS __attribute__((visibility("default"), noinline))

#if defined(SANITIZER_OWNS_MALLOC)

bool FailingAllocations::ReachesMalloc() { return false; }

namespace {

void* TakeFromHeap(std::size_t size) { return std::malloc(size); }

}  // namespace

#else

bool FailingAllocations::ReachesMalloc() { return true; }

// NOLINTBEGIN(bugprone-reserved-identifier): the C library's own, under the names that nobody replaces
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

void* TakeFromHeap(std::size_t size) { return __libc_malloc(size); }

void* AnswerNoMemory() {
  errno = ENOMEM;
  return nullptr;
}

}  // namespace

// The blocks are the C library's, and so is everything else that is done with them.
extern "C" {
OF_THE_PROCESS void* malloc(std::size_t size) noexcept {
  return IsAllocationToFail(__builtin_return_address(0)) ? AnswerNoMemory() : __libc_malloc(size);
}
OF_THE_PROCESS void* calloc(std::size_t count, std::size_t size) noexcept {
  return IsAllocationToFail(__builtin_return_address(0)) ? AnswerNoMemory() : __libc_calloc(count, size);
}
OF_THE_PROCESS void* realloc(void* block, std::size_t size) noexcept {
  return IsAllocationToFail(__builtin_return_address(0)) ? AnswerNoMemory() : __libc_realloc(block, size);
}
}

#endif

namespace {

// Null when there is none.
void* TakeBlock(std::size_t size, const void* caller) noexcept {
  return IsAllocationToFail(caller) ? nullptr : TakeFromHeap(std::max(size, std::size_t{1}));
}

void* TakeAlignedBlock(std::size_t size, std::align_val_t alignment, const void* caller) noexcept {
  void* block = nullptr;
  const bool hasFailed =
      IsAllocationToFail(caller) ||
      posix_memalign(&block, std::max(static_cast<std::size_t>(alignment), sizeof(void*)), size) != 0;
  return hasFailed ? nullptr : block;
}

void* OrThrow(void* block) {
  if (block == nullptr) {
    throw std::bad_alloc();
  }
  return block;
}

}  // namespace

#define ALLOCATION_CALLER __builtin_return_address(0)

OF_THE_PROCESS void* operator new(std::size_t size) { return OrThrow(TakeBlock(size, ALLOCATION_CALLER)); }
OF_THE_PROCESS void* operator new[](std::size_t size) { return OrThrow(TakeBlock(size, ALLOCATION_CALLER)); }
OF_THE_PROCESS void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return TakeBlock(size, ALLOCATION_CALLER);
}
OF_THE_PROCESS void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return TakeBlock(size, ALLOCATION_CALLER);
}
OF_THE_PROCESS void* operator new(std::size_t size, std::align_val_t alignment) {
  return OrThrow(TakeAlignedBlock(size, alignment, ALLOCATION_CALLER));
}
OF_THE_PROCESS void* operator new[](std::size_t size, std::align_val_t alignment) {
  return OrThrow(TakeAlignedBlock(size, alignment, ALLOCATION_CALLER));
}
OF_THE_PROCESS void* operator new(std::size_t size, std::align_val_t alignment,
                                  const std::nothrow_t& /*tag*/) noexcept {
  return TakeAlignedBlock(size, alignment, ALLOCATION_CALLER);
}
OF_THE_PROCESS void* operator new[](std::size_t size, std::align_val_t alignment,
                                    const std::nothrow_t& /*tag*/) noexcept {
  return TakeAlignedBlock(size, alignment, ALLOCATION_CALLER);
}

OF_THE_PROCESS void operator delete(void* block) noexcept { std::free(block); }
OF_THE_PROCESS void operator delete[](void* block) noexcept { std::free(block); }
OF_THE_PROCESS void operator delete(void* block, std::size_t /*size*/) noexcept { std::free(block); }
OF_THE_PROCESS void operator delete[](void* block, std::size_t /*size*/) noexcept { std::free(block); }
OF_THE_PROCESS void operator delete(void* block, const std::nothrow_t& /*tag*/) noexcept { std::free(block); }
OF_THE_PROCESS void operator delete[](void* block, const std::nothrow_t& /*tag*/) noexcept {
  std::free(block);
}
OF_THE_PROCESS void operator delete(void* block, std::align_val_t /*alignment*/) noexcept {
  std::free(block);
}
OF_THE_PROCESS void operator delete[](void* block, std::align_val_t /*alignment*/) noexcept {
  std::free(block);
}
OF_THE_PROCESS void operator delete(void* block, std::size_t /*size*/,
                                    std::align_val_t /*alignment*/) noexcept {
  std::free(block);
}
OF_THE_PROCESS void operator delete[](void* block, std::size_t /*size*/,
                                      std::align_val_t /*alignment*/) noexcept {
  std::free(block);
}
OF_THE_PROCESS void operator delete(void* block, std::align_val_t /*alignment*/,
                                    const std::nothrow_t& /*tag*/) noexcept {
  std::free(block);
}
OF_THE_PROCESS void operator delete[](void* block, std::align_val_t /*alignment*/,
                                      const std::nothrow_t& /*tag*/) noexcept {
  std::free(block);
}
