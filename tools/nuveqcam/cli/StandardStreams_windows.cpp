#include "cli/StandardStreams.h"

#include <windows.h>

#include <fcntl.h>
#include <io.h>

#include <atomic>
#include <cstdio>

#include "cli/CodePage.h"

namespace {

// 0: there is nothing to restore.
std::atomic<UINT> earlierCodePage{0};

// Lines end as on other systems, and a recording is not changed on its way. What is written to a console
// comes there as a whole: byte by byte, which is the C library's way, characters of several bytes would fall
// apart.
void Prepare(std::FILE* stream) {
  constexpr std::size_t kBufferSize = 8192;
  // A program without a console has none of them.
  if (const int descriptor = _fileno(stream); descriptor >= 0) {
    _setmode(descriptor, _O_BINARY);
    std::setvbuf(stream, nullptr, _IOFBF, kBufferSize);
  }
}

bool IsConsole(DWORD name) {
  DWORD mode = 0;
  return GetConsoleMode(GetStdHandle(name), &mode) != FALSE;
}

// A key that nobody takes up ends the process from here, on a thread of the system's, without destructors.
BOOL WINAPI RestoreBeforeEnd(DWORD /*kind*/) {
  RestoreCodePage();
  return FALSE;
}

}  // namespace

void RestoreCodePage() {
  if (const UINT codePage = earlierCodePage.exchange(0); codePage != 0) {
    SetConsoleOutputCP(codePage);
  }
}

StandardStreams::StandardStreams() {
  Prepare(stdout);
  Prepare(stderr);
  // 0 without a console. The setting is the console's, which other programs go on using.
  earlierCodePage = GetConsoleOutputCP();
  // The latest handler is asked first: this one when no other has taken the key up. It stays, which harms
  // nobody: there is nothing left to restore then.
  SetConsoleCtrlHandler(RestoreBeforeEnd, TRUE);
  SetConsoleOutputCP(CP_UTF8);
}

StandardStreams::~StandardStreams() { RestoreCodePage(); }

bool IsStandardOutputTerminal() { return IsConsole(STD_OUTPUT_HANDLE); }
bool IsStandardErrorTerminal() { return IsConsole(STD_ERROR_HANDLE); }
