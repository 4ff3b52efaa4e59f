// The library as a DLL.
//
// While a DLL is being unloaded it cannot join a thread: the unloading thread holds the loader lock, and
// every thread takes it when it ends. The encoder thread, those of a graph and those of an encoder at work
// are all of that kind. So the DLL is pinned, by a reference of its own, from the moment it has a graph until
// the camera is closed, and an unload by its host in between takes effect when the camera is closed.
//
// Dropping the pin. FreeLibrary on the closing thread would return into unmapped code if the pin is the last
// reference, and Windows does not tell whether it is. So another thread drops it, with
// FreeLibraryAndExitThread, and executes nothing of the DLL afterwards. What is left is the closing thread,
// which still has to return through the DLL to its host:
//
// - If the host has a reference, nothing is unmapped, and all that matters is when the pin is gone
// (UnpinTiming).
// - If it has none, dropping the pin starts the unload. That cannot be stopped, but it first calls DllMain,
// which
//   waits there until the closing thread has left. There is no last instruction with which that thread could
//   say so itself. It announces that from now on it only returns (Departure::isReturning); from then on its
//   instruction pointer tells: while it is in the DLL, the thread is, and once it is outside, the thread does
//   not come back. This is why UnpinModule is called at the table's boundary by the outermost call alone,
//   with no exception in flight, and why nothing may be called after it. The wait ends: what the thread has
//   left to do takes no lock. The thread is suspended only while its instruction pointer is read, and the
//   reading thread takes no lock meanwhile. It holds the loader lock, without which no process exits, so it
//   cannot be ended before it has resumed the other.
#include "Module.h"

#include <windows.h>

#include <array>
#include <atomic>
#include <memory>

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
  Handle thread;  // null: nobody has to be waited for
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
    if (WaitForMultipleObjects(2, either.data(), FALSE, INFINITE) == WAIT_OBJECT_0) {
      // The host has a reference.
      departure.thread.reset();
    }
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
