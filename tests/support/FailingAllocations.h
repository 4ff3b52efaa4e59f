// Allocation failures in selected shared libraries.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "support/Persistence.h"

namespace support {

// Counts the allocations of these libraries, on any thread, and fails selected ones: operator new throws
// std::bad_alloc; its nothrow forms, malloc, calloc and realloc return null.
//
// An allocation belongs to the library whose code requested it, directly or through the C or C++ library (for
// example a string that grows). Allocations by the test, its fakes, the logger and the dynamic linker never
// fail. The libraries may be loaded at any time.
//
// Linux only; one instance at a time. Replaces the allocation functions of the test program, at negligible
// cost while no instance exists.
class FailingAllocations {
 public:
  // names: file names up to the first dot, for example "libnuveqplatform".
  static FailingAllocations InLibraries(std::vector<std::string> names) {
    return FailingAllocations(std::move(names));
  }
  FailingAllocations(const FailingAllocations&) = delete;
  FailingAllocations& operator=(const FailingAllocations&) = delete;
  ~FailingAllocations();

  // Restarts counting. The allocation of the given number (from 1) fails, with kPersistent also every later
  // one. 0: none fails.
  void FailNth(std::uint64_t number, Persistence persistence);
  // No allocation fails from now on; counting continues.
  void FailNothing();

  // Since the last FailNth.
  std::uint64_t Count() const;
  std::uint64_t Failures() const;
  bool HasFailed() const { return Failures() != 0; }

  // False if a sanitizer intercepts malloc: then only operator new is counted and fails.
  static bool ReachesMalloc();

 private:
  explicit FailingAllocations(std::vector<std::string> names);
  // Counts an allocation of the library. True if it must fail. Called with the lock held.
  bool CountAllocation(const char* library);
  friend bool ShouldFailAllocation(const void* caller) noexcept;

  std::vector<std::string> m_names;
  std::uint64_t m_number = 0;
  Persistence m_persistence = Persistence::kTransient;
  std::uint64_t m_count = 0;
  std::uint64_t m_failures = 0;
};

}  // namespace support

using support::FailingAllocations;
