#include "cli/Process.h"

#include <windows.h>

#include <fcntl.h>
#include <io.h>

#include <shellapi.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <ratio>

#include "cli/Failure.h"
#include "cli/Text.h"
#include "cli/WideText.h"

namespace nuveqcam {
namespace {

// 0: nothing to restore.
std::atomic<UINT> previousCodePage{0};

// Disables line end translation, which would corrupt a recording. Enables buffering: the C library writes to
// a console byte by byte otherwise, which splits multi-byte characters.
void PrepareStream(std::FILE* stream) {
  constexpr std::size_t kBufferSize = 8192;
  // Without a console the stream may have no descriptor.
  if (const int descriptor = _fileno(stream); descriptor >= 0) {
    _setmode(descriptor, _O_BINARY);
    std::setvbuf(stream, nullptr, _IOFBF, kBufferSize);
  }
}

bool IsConsole(DWORD name) {
  DWORD mode = 0;
  return GetConsoleMode(GetStdHandle(name), &mode) != FALSE;
}

// Called on a thread that Windows creates. If no other handler handles the event, the process ends after this
// without running destructors.
BOOL WINAPI RestoreBeforeExit(DWORD /*kind*/) {
  RestoreCodePage();
  return FALSE;
}

// A FILETIME counts units of 100 ns.
std::chrono::nanoseconds ToDuration(const FILETIME& time) {
  using Ticks = std::chrono::duration<std::int64_t, std::ratio<1, 10'000'000>>;
  constexpr unsigned kHalfBits = 32;
  return Ticks(std::int64_t{time.dwHighDateTime} << kHalfBits | std::int64_t{time.dwLowDateTime});
}

struct LocalFreer {
  void operator()(LPWSTR* words) const { LocalFree(static_cast<void*>(words)); }
};

}  // namespace

// main's arguments have lost all characters that are not in the system's code page.
std::vector<std::string> ProgramArguments(int /*argc*/, const char* const* /*argv*/) {
  int count = 0;
  const std::unique_ptr<LPWSTR, LocalFreer> words(CommandLineToArgvW(GetCommandLineW(), &count));
  if (!words) {
    throw Failure(ExitCode::kUnexpected, "cannot read the command line: " + SystemMessage(GetLastError()));
  }
  std::vector<std::string> arguments;
  for (int i = 1; i < count; ++i) {
    arguments.push_back(ToUtf8(words.get()[i]));
  }
  return arguments;
}

void RestoreCodePage() {
  if (const UINT codePage = previousCodePage.exchange(0); codePage != 0) {
    SetConsoleOutputCP(codePage);
  }
}

StandardStreams::StandardStreams() {
  PrepareStream(stdout);
  PrepareStream(stderr);
  // 0 without a console. Other programs share the setting.
  previousCodePage = GetConsoleOutputCP();
  // The last installed handler is called first, so this one runs only if no other handles the event. It is
  // not removed: a second restore does nothing.
  SetConsoleCtrlHandler(RestoreBeforeExit, TRUE);
  SetConsoleOutputCP(CP_UTF8);
}

StandardStreams::~StandardStreams() { RestoreCodePage(); }

std::chrono::nanoseconds ProcessCpuTime() {
  FILETIME created{};
  FILETIME ended{};
  FILETIME kernel{};
  FILETIME user{};
  if (GetProcessTimes(GetCurrentProcess(), &created, &ended, &kernel, &user) == FALSE) {
    return {};
  }
  return ToDuration(kernel) + ToDuration(user);
}

bool IsStandardOutputTerminal() { return IsConsole(STD_OUTPUT_HANDLE); }
bool IsStandardErrorTerminal() { return IsConsole(STD_ERROR_HANDLE); }

}  // namespace nuveqcam
