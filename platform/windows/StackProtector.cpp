// What the compiler's stack protector needs at run time: a value that is hard to guess, between a function's
// arrays and its return address, and an end for the process in which it was overwritten. Each DLL and program
// has its own.
#include <windows.h>

#include <cstdint>

// NOLINTBEGIN(bugprone-reserved-identifier): the names that the compiler asks for
extern "C" {
std::uintptr_t __stack_chk_guard = 0x6B1D9E3C52A7F400;
[[noreturn]] void __stack_chk_fail();
}

// Nothing of the process can be trusted any more: the kernel ends it, and no handler of its own runs.
void __stack_chk_fail() {
  __asm__ volatile("int $0x29" : : "c"(FAST_FAIL_STACK_COOKIE_CHECK_FAILURE));
  __builtin_unreachable();
}

namespace {

// Every bit of the result depends on every bit of the value: the last steps of the SplitMix64 generator.
std::uint64_t Mixed(std::uint64_t value) {
  value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9;
  value = (value ^ (value >> 27)) * 0x94D049BB133111EB;
  return value ^ (value >> 31);
}

// While the image is being loaded, when no other may be: from what changes from one process and moment to the
// next. Before other constructors, so that no function that has read the value is still to return then.
__attribute__((constructor(101))) void ChooseGuard() {
  FILETIME time{};
  GetSystemTimeAsFileTime(&time);
  LARGE_INTEGER counter{};
  QueryPerformanceCounter(&counter);
  std::uint64_t value = Mixed((std::uint64_t{time.dwHighDateTime} << 32) | time.dwLowDateTime);
  value = Mixed(value ^ static_cast<std::uint64_t>(counter.QuadPart));
  value = Mixed(value ^ (std::uint64_t{GetCurrentProcessId()} << 32) ^ GetCurrentThreadId());
  // Where the system has put the image and this thread's stack.
  value = Mixed(value ^ reinterpret_cast<std::uintptr_t>(&__stack_chk_guard));
  value = Mixed(value ^ reinterpret_cast<std::uintptr_t>(&time));
  // A zero byte in front stops text that runs over.
  constexpr std::uint64_t kZeroByte = 0xFF;
  __stack_chk_guard = value & ~kZeroByte;
}

}  // namespace
// NOLINTEND(bugprone-reserved-identifier)
