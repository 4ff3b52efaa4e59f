// Runtime support of the compiler's stack protector: the guard value between a function's arrays and its
// return address, and the handler for an overwritten guard. Each DLL and program has its own guard.
#include <windows.h>

#include <cstdint>

// NOLINTBEGIN(bugprone-reserved-identifier): the compiler refers to these names
extern "C" {
std::uintptr_t __stack_chk_guard = 0x6B1D9E3C52A7F400;
[[noreturn]] void __stack_chk_fail();
}

// The process state is corrupt. __fastfail ends the process in the kernel without running exception handlers.
void __stack_chk_fail() {
  __asm__ volatile("int $0x29" : : "c"(FAST_FAIL_STACK_COOKIE_CHECK_FAILURE));
  __builtin_unreachable();
}

namespace {

// The finaliser of SplitMix64: every bit of the result depends on every bit of the value.
std::uint64_t Mix(std::uint64_t value) {
  value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9;
  value = (value ^ (value >> 27)) * 0x94D049BB133111EB;
  return value ^ (value >> 31);
}

// Combines values that differ between processes: while the image is loaded, the system's random number
// provider cannot be loaded. Runs before all other constructors, so that no active function has saved the
// initial value.
__attribute__((constructor(101))) void InitialiseGuard() {
  FILETIME time{};
  GetSystemTimeAsFileTime(&time);
  LARGE_INTEGER counter{};
  QueryPerformanceCounter(&counter);
  std::uint64_t value = Mix((std::uint64_t{time.dwHighDateTime} << 32) | time.dwLowDateTime);
  value = Mix(value ^ static_cast<std::uint64_t>(counter.QuadPart));
  value = Mix(value ^ (std::uint64_t{GetCurrentProcessId()} << 32) ^ GetCurrentThreadId());
  // Addresses of the image and of this thread's stack (ASLR).
  value = Mix(value ^ reinterpret_cast<std::uintptr_t>(&__stack_chk_guard));
  value = Mix(value ^ reinterpret_cast<std::uintptr_t>(&time));
  // A zero in the lowest byte stops overruns by string functions.
  constexpr std::uint64_t kLowestByte = 0xFF;
  __stack_chk_guard = value & ~kLowestByte;
}

}  // namespace
// NOLINTEND(bugprone-reserved-identifier)
