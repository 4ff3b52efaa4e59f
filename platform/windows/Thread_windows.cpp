// The encoder thread on Windows.
#include "Thread.h"

#include <windows.h>

namespace {

using SetDescription = HRESULT(WINAPI*)(HANDLE, PCWSTR);

// Windows 10 1607 and later have names of threads, the first of them in this DLL alone. kernel32 is built on
// it, so that it is always there.
void Name(HANDLE thread) {
  const HMODULE kernel = GetModuleHandleW(L"kernelbase.dll");
  if (kernel == nullptr) {
    return;
  }
  const auto setDescription = reinterpret_cast<SetDescription>(
      reinterpret_cast<void*>(GetProcAddress(kernel, "SetThreadDescription")));
  if (setDescription != nullptr) {
    setDescription(thread, L"nuveq-encoder");
  }
}

}  // namespace

void PrepareEncoderThread() noexcept {
  auto* const self = GetCurrentThread();
  Name(self);
  // Counted from the host's own priority class. Whoever has given the thread another one stays right.
  if (GetThreadPriority(self) == THREAD_PRIORITY_NORMAL) {
    SetThreadPriority(self, THREAD_PRIORITY_ABOVE_NORMAL);
  }
}
