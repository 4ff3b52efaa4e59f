#include "Heap.h"

#include <malloc.h>
#include <unistd.h>

#include <cstdlib>

namespace soak {

std::size_t HeapInUse() {
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

void ConfigureAllocator(char** argv) {
  // mallinfo2 counts blocks in per-thread caches as in use. Only the environment can disable these caches.
  constexpr const char* kTunables = "GLIBC_TUNABLES";
  if (std::getenv(kTunables) == nullptr) {                // NOLINT(concurrency-mt-unsafe): no threads yet
    setenv(kTunables, "glibc.malloc.tcache_count=0", 1);  // NOLINT(concurrency-mt-unsafe): no threads yet
    execv("/proc/self/exe", argv);
    // If exec fails, continues with the caches.
  }
  // An explicit threshold is not adjusted dynamically, so freed frames are unmapped at once.
  constexpr int kThreshold = 128 << 10;
  mallopt(M_MMAP_THRESHOLD, kThreshold);
  mallopt(M_TRIM_THRESHOLD, kThreshold);
}

void TrimHeap() { malloc_trim(0); }

bool AllocatorRetainsFreedMemory() { return false; }

}  // namespace soak
