// Name and priority of the encoder thread on Windows.
#include "Thread.h"

#include <windows.h>

namespace {

using SetDescription = HRESULT(WINAPI*)(HANDLE, PCWSTR);

// Requires Windows 10 1607, which exports the function only from kernelbase.dll. kernel32 loads that DLL.
void SetName(HANDLE thread) {
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

void platform::ConfigureEncoderThread() noexcept {
  auto* const self = GetCurrentThread();
  SetName(self);
  // Relative to the priority class of the process. Keeps a priority that the host has set.
  if (GetThreadPriority(self) == THREAD_PRIORITY_NORMAL) {
    SetThreadPriority(self, THREAD_PRIORITY_ABOVE_NORMAL);
  }
}
