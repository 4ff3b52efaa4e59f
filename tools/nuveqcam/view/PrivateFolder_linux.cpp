#include "view/PrivateFolder.h"

#include <cerrno>
#include <cstdlib>
#include <string>
#include <system_error>

#include "cli/Failure.h"
#include "cli/Text.h"

namespace nuveqcam {

std::filesystem::path PrivateFolder::Create(const std::filesystem::path& parent, const std::string& advice) {
  std::string name = parent / "nuveqcam-XXXXXX";
  if (mkdtemp(name.data()) == nullptr) {
    throw Failure(ExitCode::kCannotWrite, "cannot create a folder in " +
                                              SanitizeForTerminal(parent.string()) + ": " +
                                              std::generic_category().message(errno) + advice);
  }
  return name;
}

}  // namespace nuveqcam
