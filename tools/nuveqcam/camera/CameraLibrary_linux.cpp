#include "camera/CameraLibrary.h"

#include <filesystem>
#include <system_error>

#include <dlfcn.h>

#include "cli/Failure.h"
#include "cli/SystemTraits.h"
#include "cli/Text.h"

namespace {

std::string LibraryBesideProgram() {
  const char* const name = ThisSystem().libraryFile;
  std::error_code error;
  const auto file = std::filesystem::read_symlink("/proc/self/exe", error).replace_filename(name);
  // An installed program has its libraries elsewhere; the system knows where.
  return !error && std::filesystem::exists(file, error) ? file.string() : name;
}

// A name without a folder means a file here, not one that the system would search for.
std::string LibraryNamed(const std::string& file) {
  std::error_code error;
  const auto path = std::filesystem::absolute(file, error);
  return error ? file : path.string();
}

[[noreturn]] void FailToLoad(const std::string& file, const std::string& reason) {
  throw Failure(ExitCode::kUnexpected, "cannot load the camera library " + SanitizeForTerminal(file) + ": " +
                                           SanitizeForTerminal(reason) + "; give its file with --library");
}

std::string LatestLoadError() {
  const char* const text = dlerror();  // NOLINT(concurrency-mt-unsafe): per thread in this C library
  return text != nullptr ? text : "unknown reason";
}

}  // namespace

CameraLibrary::CameraLibrary(const std::string& file) {
  const std::string path = file.empty() ? LibraryBesideProgram() : LibraryNamed(file);
  m_handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (m_handle == nullptr) {
    FailToLoad(path, LatestLoadError());
  }
  using GetTable = std::int32_t (*)(NUVEQCameraHandler*);
  const auto getTable = reinterpret_cast<GetTable>(dlsym(m_handle, "NUVEQGetCameraHandler"));
  if (getTable == nullptr || getTable(&m_table) != NUVEQ_CAMERA_OK) {
    dlclose(m_handle);
    FailToLoad(path, "it gives no table of camera functions");
  }
}

CameraLibrary::~CameraLibrary() { dlclose(m_handle); }
