#include "cli/StopSignals.h"

#include <windows.h>

#include <atomic>

#include "cli/CodePage.h"

namespace {

std::atomic<bool> stopHasArrived{false};

// Runs on a thread that the system makes for it.
BOOL WINAPI NoteStop(DWORD kind) {
  const bool isFirst = !stopHasArrived.exchange(true);
  if (kind != CTRL_C_EVENT && kind != CTRL_BREAK_EVENT) {
    // The console closes, or the session ends: the process lives until this returns, or for the seconds that
    // the system grants it. It ends by itself before that, when the recording is complete.
    Sleep(INFINITE);
  }
  if (!isFirst) {
    RestoreCodePage();
    // At once: an orderly end would run code of DLLs whose other threads have been ended anywhere.
    TerminateProcess(GetCurrentProcess(), static_cast<UINT>(STATUS_CONTROL_C_EXIT));
  }
  return TRUE;
}

}  // namespace

StopSignals::StopSignals() {
  stopHasArrived = false;
  // Once: a handler that is added twice is called twice. Removing it would wait for a handler that waits for
  // the end of the process.
  [[maybe_unused]] static const BOOL isInstalled = SetConsoleCtrlHandler(NoteStop, TRUE);
}

bool StopSignals::HasArrived() const { return stopHasArrived; }
