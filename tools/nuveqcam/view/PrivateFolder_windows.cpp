#include "view/PrivateFolder.h"

#include <windows.h>

#include <random>
#include <string>

#include "cli/Failure.h"
#include "cli/Text.h"
#include "cli/WideText.h"

namespace nuveqcam {

// The user's folder for temporary files is private, and the new folder inherits its permissions.
std::filesystem::path PrivateFolder::Create(const std::filesystem::path& parent, const std::string& advice) {
  std::random_device random;
  for (;;) {
    std::filesystem::path path = parent / ("nuveqcam-" + std::to_string(random()));
    if (CreateDirectoryW(path.c_str(), nullptr) != FALSE) {
      return path;
    }
    if (const DWORD code = GetLastError(); code != ERROR_ALREADY_EXISTS) {
      throw Failure(ExitCode::kCannotWrite, "cannot create a folder in " +
                                                SanitizeForTerminal(ToUtf8(parent.wstring())) + ": " +
                                                SystemMessage(code) + advice);
    }
  }
}

}  // namespace nuveqcam
