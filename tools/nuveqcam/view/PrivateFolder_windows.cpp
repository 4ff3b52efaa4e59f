#include "view/PrivateFolder.h"

#include <windows.h>

#include <random>
#include <string>
#include <system_error>

#include "cli/Failure.h"
#include "cli/SystemTraits.h"
#include "cli/Text.h"
#include "cli/WideText.h"

namespace nuveqcam {

// The user's folder for temporary files is private, and the new folder inherits its permissions.
PrivateFolder::PrivateFolder() {
  const std::string advice =
      std::string("; set ") + ThisSystem().tempFolderVariable + " to a folder that can be written";
  std::error_code error;
  const std::filesystem::path parent = std::filesystem::temp_directory_path(error);
  if (error) {
    throw Failure(ExitCode::kCannotWrite,
                  "cannot find the folder for temporary files: " + error.message() + advice);
  }
  std::random_device random;
  for (;;) {
    const std::filesystem::path path = parent / ("nuveqcam-" + std::to_string(random()));
    if (CreateDirectoryW(path.c_str(), nullptr) != FALSE) {
      m_path = path;
      return;
    }
    if (const DWORD code = GetLastError(); code != ERROR_ALREADY_EXISTS) {
      throw Failure(ExitCode::kCannotWrite, "cannot create a folder in " +
                                                SanitizeForTerminal(ToUtf8(parent.wstring())) + ": " +
                                                SystemMessage(code) + advice);
    }
  }
}

PrivateFolder::~PrivateFolder() {
  if (!m_isKept) {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
  }
}

}  // namespace nuveqcam
