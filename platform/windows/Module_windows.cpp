// The library as a DLL. docs/windows.md says why all this is needed and why it is sound.
//
// While a DLL is being unloaded it cannot join a thread: the unloading thread holds the loader lock, and
// every thread takes it when it ends. So the DLL is pinned, by a reference of its own, from the moment it has
// a graph until the camera is closed. An unload by its host in between takes effect when the camera is
// closed.
//
// The pin may be the last reference, and FreeLibrary would then return into unmapped code. So another thread
// drops it, with FreeLibraryAndExitThread. Whoever drops the last reference, that thread or one of the host's
// while the close is still returning, DllMain holds up the unload until the closing thread has left the DLL:
// until that thread has announced that it only returns (Departure::isReturning), and
// its instruction pointer is outside. Therefore UnpinModule is the last thing that the outermost call through
// the table does.
#include "Module.h"

#include <windows.h>

#include <array>
#include <atomic>
#include <memory>
#include <utility>

// The start of the DLL that this code is in; the linker defines it.
extern "C" IMAGE_DOS_HEADER __ImageBase;  // NOLINT(bugprone-reserved-identifier)

namespace {

struct CloseHandleAtEnd {
  void operator()(HANDLE handle) const { CloseHandle(handle); }
};
using Handle = std::unique_ptr<void, CloseHandleAtEnd>;

std::atomic<bool> processIsEnding{false};

// The thread that closed the camera last, on its way out of the DLL.
struct Departure {
  Handle thread;  // null: the camera was never closed
  DWORD threadId = 0;
  Handle unloadBegins;  // an event
  // Set when the thread does nothing in the DLL any more but return from it.
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

// True for a thread that executes code of this DLL, and for one that cannot be asked.
bool IsInThisModule(HANDLE thread) {
  if (SuspendThread(thread) == static_cast<DWORD>(-1)) {
    return true;
  }
  // Getting the context also waits until the thread is really suspended.
  CONTEXT context{};
  context.ContextFlags = CONTEXT_CONTROL;
  const BOOL isKnown = GetThreadContext(thread, &context);
  ResumeThread(thread);
  return isKnown == FALSE || IsInThisModule(context.Rip);
}

// Returns when the departing thread executes nothing of this DLL any more, or has ended.
void WaitForDeparture() {
  constexpr DWORD kPollInterval = 1;  // ms; yielding would not let threads of lower priority run
  while (!departure.isReturning || IsInThisModule(departure.thread.get())) {
    if (WaitForSingleObject(departure.thread.get(), kPollInterval) != WAIT_TIMEOUT) {
      return;
    }
  }
}

Handle ThisThread() {
  HANDLE thread = nullptr;
  DuplicateHandle(GetCurrentProcess(), GetCurrentThread(), GetCurrentProcess(), &thread,
                  THREAD_SUSPEND_RESUME | THREAD_GET_CONTEXT | SYNCHRONIZE, FALSE, 0);
  return Handle(thread);
}

DWORD WINAPI DropPinOnThisThread(LPVOID /*unused*/) { FreeLibraryAndExitThread(ThisModule(), 0); }

void DropPin(UnpinTiming timing) {
  Handle thread = ThisThread();
  Handle unloadBegins(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  if (!thread || !unloadBegins) {
    return;
  }
  departure.thread = std::move(thread);
  departure.threadId = GetCurrentThreadId();
  departure.unloadBegins = std::move(unloadBegins);
  const Handle dropping(CreateThread(nullptr, 0, DropPinOnThisThread, nullptr, 0, nullptr));
  if (dropping && timing == UnpinTiming::kBeforeReturning) {
    const std::array<HANDLE, 2> either{dropping.get(), departure.unloadBegins.get()};
    WaitForMultipleObjects(2, either.data(), FALSE, INFINITE);
  }
}

}  // namespace

void PinModule() {
  HMODULE module = nullptr;
  GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS, reinterpret_cast<LPCWSTR>(&__ImageBase),
                     &module);
}

void UnpinModule(UnpinTiming timing) {
  if (processIsEnding) {
    return;
  }
  departure.isReturning = false;
  DropPin(timing);
  departure.isReturning = true;
}

bool IsProcessEnding() { return processIsEnding; }

extern "C" BOOL WINAPI DllMain(HINSTANCE /*module*/, DWORD reason, LPVOID reserved) {
  if (reason == DLL_PROCESS_DETACH) {
    // Only an unload has no reserved argument. At the end of the process the other threads are gone already.
    processIsEnding = reserved != nullptr;
    if (!processIsEnding && departure.thread && departure.threadId != GetCurrentThreadId()) {
      SetEvent(departure.unloadBegins.get());
      WaitForDeparture();
    }
  }
  return TRUE;
}
