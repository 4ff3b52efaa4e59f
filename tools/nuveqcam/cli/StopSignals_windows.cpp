#include "cli/StopSignals.h"

#include <windows.h>

#include <atomic>

#include "cli/Process.h"

namespace nuveqcam {
namespace {

std::atomic<bool> isStopRequested{false};

// Called on a thread that Windows creates.
BOOL WINAPI OnStopRequest(DWORD kind) {
  const bool isFirst = !isStopRequested.exchange(true);
  if (kind != CTRL_C_EVENT && kind != CTRL_BREAK_EVENT) {
    // The console or the session ends. The process is ended when this returns or after a timeout of some
    // seconds; it exits earlier once the recording is complete.
    Sleep(INFINITE);
  }
  if (!isFirst) {
    RestoreCodePage();
    // Not ExitProcess, which runs DLL code after ending all other threads at arbitrary points.
    TerminateProcess(GetCurrentProcess(), static_cast<UINT>(STATUS_CONTROL_C_EXIT));
  }
  return TRUE;
}

}  // namespace

StopSignals::StopSignals() {
  isStopRequested = false;
  // Installed only once: a handler that is added twice is called twice. Removing it would wait for a running
  // handler, which may wait for the end of the process.
  [[maybe_unused]] static const BOOL isInstalled = SetConsoleCtrlHandler(OnStopRequest, TRUE);
}

bool StopSignals::HasArrived() const { return isStopRequested; }

}  // namespace nuveqcam
