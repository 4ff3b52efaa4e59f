#include "cli/ProgramArguments.h"

#include <windows.h>

#include <shellapi.h>

#include <memory>

#include "cli/Failure.h"
#include "cli/Text.h"
#include "cli/WideText.h"

namespace {

struct FreeLocal {
  void operator()(LPWSTR* words) const { LocalFree(static_cast<void*>(words)); }
};

}  // namespace

// What main gets has lost the characters that the system's code page does not have.
std::vector<std::string> ProgramArguments(int /*argc*/, const char* const* /*argv*/) {
  int count = 0;
  const std::unique_ptr<LPWSTR, FreeLocal> words(CommandLineToArgvW(GetCommandLineW(), &count));
  if (!words) {
    throw Failure(ExitCode::kUnexpected, "cannot read the command line: " + SystemMessage(GetLastError()));
  }
  std::vector<std::string> arguments;
  for (int i = 1; i < count; ++i) {
    arguments.push_back(Utf8(words.get()[i]));
  }
  return arguments;
}
