// Pins the DLL while it has a capture graph. docs/architecture.md explains why this is sound.
//
// A DLL cannot join threads while it is unloaded: the unloading thread holds the loader lock, which every
// thread acquires when it exits. Therefore the DLL holds a reference to itself, the pin, while it has a
// graph. If the host unloads the DLL in that time, the unload takes effect when the camera is closed.
//
// The pin may be the last reference, and FreeLibrary would then return into unmapped code. Therefore another
// thread drops it with FreeLibraryAndExitThread. Whichever thread drops the last reference, DllMain delays
// the unload until the thread that closed the camera has left the DLL: it has set Departure::isReturning, and
// its instruction pointer is outside the DLL. Therefore UnpinModule must be the last action of the outermost
// call through the function table.
#include "Module.h"

#include <windows.h>

#include <array>
#include <atomic>
#include <memory>
#include <utility>

// Start of this DLL; defined by the linker.
extern "C" IMAGE_DOS_HEADER __ImageBase;  // NOLINT(bugprone-reserved-identifier)

namespace {

struct HandleCloser {
  void operator()(HANDLE handle) const { CloseHandle(handle); }
};
using Handle = std::unique_ptr<void, HandleCloser>;

std::atomic<bool> isProcessEnding{false};

// The thread that closed the camera last and may still be returning through the DLL.
struct Departure {
  Handle thread;  // null: the camera was never closed
  DWORD threadId = 0;
  Handle unloadStarted;  // event
  // Set when the only remaining action of the thread in the DLL is to return.
  std::atomic<bool> isReturning{false};
};
Departure departure;

HMODULE ThisModule() { return reinterpret_cast<HMODULE>(&__ImageBase); }

bool IsInThisModule(DWORD64 address) {
  MEMORY_BASIC_INFORMATION region{};
  // NOLINTNEXTLINE(performance-no-int-to-ptr): the address comes from a register
  return VirtualQuery(reinterpret_cast<LPCVOID>(address), &region, sizeof(region)) != 0 &&
         region.AllocationBase == &__ImageBase;
}

// True if the thread executes code of this DLL or its state is unknown.
bool IsInThisModule(HANDLE thread) {
  if (SuspendThread(thread) == static_cast<DWORD>(-1)) {
    return true;
  }
  // SuspendThread is asynchronous; GetThreadContext waits until the thread is suspended.
  CONTEXT context{};
  context.ContextFlags = CONTEXT_CONTROL;
  const BOOL hasContext = GetThreadContext(thread, &context);
  ResumeThread(thread);
  return hasContext == FALSE || IsInThisModule(context.Rip);
}

// Returns when the departing thread has left this DLL or has ended.
void WaitForDeparture() {
  constexpr DWORD kPollInterval = 1;  // ms; unlike yielding, waiting lets threads of lower priority run
  while (!departure.isReturning || IsInThisModule(departure.thread.get())) {
    if (WaitForSingleObject(departure.thread.get(), kPollInterval) != WAIT_TIMEOUT) {
      return;
    }
  }
}

Handle OpenCurrentThread() {
  HANDLE thread = nullptr;
  DuplicateHandle(GetCurrentProcess(), GetCurrentThread(), GetCurrentProcess(), &thread,
                  THREAD_SUSPEND_RESUME | THREAD_GET_CONTEXT | SYNCHRONIZE, FALSE, 0);
  return Handle(thread);
}

DWORD WINAPI FreeModuleAndExit(LPVOID /*unused*/) { FreeLibraryAndExitThread(ThisModule(), 0); }

void DropPin(platform::UnpinTiming timing) {
  Handle thread = OpenCurrentThread();
  Handle unloadStarted(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  if (!thread || !unloadStarted) {
    return;
  }
  departure.thread = std::move(thread);
  departure.threadId = GetCurrentThreadId();
  departure.unloadStarted = std::move(unloadStarted);
  const Handle dropper(CreateThread(nullptr, 0, FreeModuleAndExit, nullptr, 0, nullptr));
  if (dropper && timing == platform::UnpinTiming::kBeforeReturning) {
    const std::array<HANDLE, 2> handles{dropper.get(), departure.unloadStarted.get()};
    WaitForMultipleObjects(2, handles.data(), FALSE, INFINITE);
  }
}

}  // namespace

void platform::PinModule() {
  HMODULE module = nullptr;
  GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS, reinterpret_cast<LPCWSTR>(&__ImageBase),
                     &module);
}

void platform::UnpinModule(UnpinTiming timing) {
  if (isProcessEnding) {
    return;
  }
  departure.isReturning = false;
  DropPin(timing);
  departure.isReturning = true;
}

bool platform::IsProcessEnding() { return isProcessEnding; }

extern "C" BOOL WINAPI DllMain(HINSTANCE /*module*/, DWORD reason, LPVOID reserved) {
  if (reason == DLL_PROCESS_DETACH) {
    // reserved is null for an unload. At process exit, all other threads have already ended.
    isProcessEnding = reserved != nullptr;
    if (!isProcessEnding && departure.thread && departure.threadId != GetCurrentThreadId()) {
      SetEvent(departure.unloadStarted.get());
      WaitForDeparture();
    }
  }
  return TRUE;
}
