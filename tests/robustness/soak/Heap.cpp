#include "Heap.h"

#include <malloc.h>
#include <unistd.h>

#include <cstdlib>

std::size_t HeapInUse() {
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

void MakeAllocatorTidy(char** argv) {
  // Blocks in the caches of the threads count as in use. These caches can be switched off from outside only.
  constexpr const char* kTunables = "GLIBC_TUNABLES";
  if (std::getenv(kTunables) == nullptr) {                // NOLINT(concurrency-mt-unsafe): no threads yet
    setenv(kTunables, "glibc.malloc.tcache_count=0", 1);  // NOLINT(concurrency-mt-unsafe): no threads yet
    execv("/proc/self/exe", argv);
    // Goes on with them where the program cannot be started again.
  }
  // A threshold that is set does not rise with the blocks that are freed: frames leave the process at once.
  constexpr int kThreshold = 128 << 10;
  mallopt(M_MMAP_THRESHOLD, kThreshold);
  mallopt(M_TRIM_THRESHOLD, kThreshold);
}

void GiveFreePagesBack() { malloc_trim(0); }

bool AllocatorKeepsFreedMemory() { return false; }
