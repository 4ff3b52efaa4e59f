// The library as a DLL.
//
// A DLL cannot join a thread of its own while it is being unloaded, nor take apart a graph, which has threads
// too: the ending thread and the unloading one wait for each other's turn at the loader. So the DLL is held
// in memory meanwhile, and an unload by its host takes effect when the camera is closed.
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

}  // namespace

void HoldModule() { ThisModule(0); }

// Where the host still holds the DLL, as it should when it calls into it, the hold is gone when this returns.
// A host that has unloaded it in the meantime closes the camera through a table that it should not use any
// more: then this is the last hold, and a thread has to let it go that executes nothing of the DLL
// afterwards.
void LetModuleGo() {
  const HMODULE module = ThisModule(GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT);
  const Handle unloading(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  if (module == nullptr || !unloading) {
    // It stays for the rest of the process, which hurts less than losing it under way.
    return;
  }
  unloadBegins = unloading.get();
  // FreeLibrary has the form of a thread's function: it takes a pointer and answers 32 bits.
  const auto letGo = reinterpret_cast<LPTHREAD_START_ROUTINE>(reinterpret_cast<void*>(&FreeLibrary));
  if (const Handle thread(CreateThread(nullptr, 0, letGo, module, 0, nullptr)); thread) {
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
    if (const HANDLE waiting = unloadBegins; waiting != nullptr && !processIsEnding) {
      // The thread that closes the camera is still in here.
      SetEvent(waiting);
      Sleep(kTimeToLeave);
    }
  }
  return TRUE;
}
