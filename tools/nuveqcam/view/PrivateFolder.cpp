#include "view/PrivateFolder.h"

#include <system_error>

#include "cli/Failure.h"
#include "cli/SystemTraits.h"

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
  m_path = Create(parent, advice);
}

PrivateFolder::~PrivateFolder() {
  if (!m_isKept) {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
  }
}

}  // namespace nuveqcam
