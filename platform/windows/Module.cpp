// The library as a DLL.
//
// A DLL cannot join a thread while it is being unloaded: the ending thread and the unloading one wait for
// each other's turn at the loader. Its encoder thread, the threads of a graph and those of an encoder are all
// of that kind. So the DLL is held in memory while it has any, and an unload by its host takes effect when
// the camera is closed.
#include "Module.h"

#include <windows.h>

#include <array>
#include <atomic>
#include <memory>

namespace {

// Ample for a thread that has been woken to execute the few instructions that are left to it here.
constexpr DWORD kTimeToLeave = 2000;  // ms

struct CloseHandleAtEnd {
  void operator()(HANDLE handle) const { CloseHandle(handle); }
};
using Handle = std::unique_ptr<void, CloseHandleAtEnd>;

std::atomic<bool> processIsEnding{false};

// While a thread lets go of the DLL: the event that tells it that the DLL is being unloaded.
std::atomic<HANDLE> unloadBegins{nullptr};

// The DLL that this code is in; null when the system cannot tell.
HMODULE ThisModule(DWORD flags) {
  static const char anchor = 0;
  HMODULE module = nullptr;
  const BOOL found = GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | flags,
                                        reinterpret_cast<LPCWSTR>(&anchor), &module);
  return found != FALSE ? module : nullptr;
}

// Lets go of the DLL on a thread that executes nothing of it afterwards.
DWORD WINAPI LetGo(LPVOID module) { FreeLibraryAndExitThread(static_cast<HMODULE>(module), 0); }

}  // namespace

void HoldModule() { ThisModule(0); }

// Where the host still holds the DLL, as it should when it calls into it, the hold is gone when this returns.
// A host that has unloaded it in the meantime closes the camera through a table that it should not use any
// more: then this is the last hold, and the end of the DLL gives this thread time to leave it.
void LetModuleGo() {
  const HMODULE module = ThisModule(GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT);
  const Handle unloading(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  if (processIsEnding || module == nullptr || !unloading) {
    // It stays for the rest of the process, which hurts less than losing it under way.
    return;
  }
  unloadBegins = unloading.get();
  if (const Handle thread(CreateThread(nullptr, 0, LetGo, module, 0, nullptr)); thread) {
    const std::array<HANDLE, 2> either{thread.get(), unloading.get()};
    WaitForMultipleObjects(2, either.data(), FALSE, INFINITE);
  }
  unloadBegins = nullptr;
}

bool IsProcessEnding() { return processIsEnding; }

extern "C" BOOL WINAPI DllMain(HINSTANCE /*module*/, DWORD reason, LPVOID reserved) {
  if (reason == DLL_PROCESS_DETACH) {
    // Only an unload has no reserved argument. At the end of the process the other threads are gone already.
    processIsEnding = reserved != nullptr;
    if (HANDLE waiting = unloadBegins; waiting != nullptr && !processIsEnding) {
      // The thread that closes the camera is still in here.
      SetEvent(waiting);
      Sleep(kTimeToLeave);
    }
  }
  return TRUE;
}
