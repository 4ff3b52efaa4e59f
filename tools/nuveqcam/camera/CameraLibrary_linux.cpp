#include "camera/CameraLibrary.h"

#include <filesystem>
#include <system_error>

#include <dlfcn.h>

#include "cli/Failure.h"
#include "cli/SystemTraits.h"
#include "cli/Text.h"

namespace nuveqcam {
namespace {

std::string DefaultLibrary() {
  const char* const name = ThisSystem().libraryFile;
  std::error_code error;
  const auto file = std::filesystem::read_symlink("/proc/self/exe", error).replace_filename(name);
  // The libraries of an installed program are in another folder, where the dynamic linker finds them.
  return !error && std::filesystem::exists(file, error) ? file.string() : name;
}

// A name without a folder is a file in the current folder, not one to search for.
std::string ToAbsolutePath(const std::string& file) {
  std::error_code error;
  const auto path = std::filesystem::absolute(file, error);
  return error ? file : path.string();
}

[[noreturn]] void ThrowLoadFailure(const std::string& file, const std::string& reason) {
  throw Failure(ExitCode::kUnexpected, "cannot load the camera library " + SanitizeForTerminal(file) + ": " +
                                           SanitizeForTerminal(reason) + "; specify its file with --library");
}

std::string LastLoadError() {
  const char* const text = dlerror();  // NOLINT(concurrency-mt-unsafe): thread-local in glibc
  return text != nullptr ? text : "unknown reason";
}

}  // namespace

CameraLibrary::CameraLibrary(const std::string& file) {
  const std::string path = file.empty() ? DefaultLibrary() : ToAbsolutePath(file);
  m_handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (m_handle == nullptr) {
    ThrowLoadFailure(path, LastLoadError());
  }
  const auto getTable =
      reinterpret_cast<NUVEQGetCameraHandlerFunction>(dlsym(m_handle, "NUVEQGetCameraHandler"));
  if (getTable == nullptr || getTable(&m_table) != NUVEQ_CAMERA_OK) {
    dlclose(m_handle);
    ThrowLoadFailure(path, "it does not export a camera handler table");
  }
}

CameraLibrary::~CameraLibrary() { dlclose(m_handle); }

}  // namespace nuveqcam
