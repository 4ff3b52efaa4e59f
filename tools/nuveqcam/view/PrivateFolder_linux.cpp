#include "view/PrivateFolder.h"

#include <cerrno>
#include <cstdlib>
#include <string>
#include <system_error>

#include "cli/Failure.h"
#include "cli/SystemTraits.h"
#include "cli/Text.h"

namespace nuveqcam {

PrivateFolder::PrivateFolder() {
  const std::string advice =
      std::string("; set ") + ThisSystem().tempFolderVariable + " to a folder that can be written";
  std::error_code error;
  const std::filesystem::path parent = std::filesystem::temp_directory_path(error);
  if (error) {
    throw Failure(ExitCode::kCannotWrite,
                  "cannot find the folder for temporary files: " + error.message() + advice);
  }
  std::string name = parent / "nuveqcam-XXXXXX";
  if (mkdtemp(name.data()) == nullptr) {
    throw Failure(ExitCode::kCannotWrite, "cannot create a folder in " +
                                              SanitizeForTerminal(parent.string()) + ": " +
                                              std::generic_category().message(errno) + advice);
  }
  m_path = name;
}

PrivateFolder::~PrivateFolder() {
  if (!m_isKept) {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
  }
}

}  // namespace nuveqcam
