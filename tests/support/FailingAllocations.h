// Memory that runs out for the shared libraries that a test names, and for nobody else.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "support/Persistence.h"

// While it lives it counts the allocations of those libraries, from any thread, and fails the ones it is told
// to: operator new throws std::bad_alloc; its forms that do not throw, and malloc, calloc and realloc, answer
// null.
//
// An allocation belongs to the library whose code asked for it, be it by way of the C++ or the C library: a
// string that grows, a file that is opened. What others allocate during a call never fails: the test and what
// it stands in for, the logger, the dynamic linker. A library may be loaded at any time.
//
// Linux only. One at a time. The test program takes its memory from here all the while; it costs next to
// nothing where none of these lives.
class FailingAllocations {
 public:
  // By their file names up to the first dot: "libnuveqplatform".
  static FailingAllocations InLibraries(std::vector<std::string> names) {
    return FailingAllocations(std::move(names));
  }
  FailingAllocations(const FailingAllocations&) = delete;
  FailingAllocations& operator=(const FailingAllocations&) = delete;
  ~FailingAllocations();

  // The allocation of that number, counted from 1 and from now, fails; or it and every later one. 0: none.
  void FailNth(std::uint64_t number, Persistence persistence);
  // Goes on counting.
  void FailNothing();

  // Since the latest FailNth.
  std::uint64_t Count() const;
  std::uint64_t Failures() const;
  bool HasFailed() const { return Failures() != 0; }

  // False where a sanitizer needs malloc for itself: operator new alone is counted and fails there.
  static bool ReachesMalloc();

 private:
  explicit FailingAllocations(std::vector<std::string> names);
  // With the lock held, of an allocation that somebody makes.
  bool IsToFail(const char* library);
  friend bool IsAllocationToFail(const void* caller) noexcept;

  std::vector<std::string> m_names;
  std::uint64_t m_number = 0;
  Persistence m_persistence = Persistence::kTransient;
  std::uint64_t m_count = 0;
  std::uint64_t m_failures = 0;
};
