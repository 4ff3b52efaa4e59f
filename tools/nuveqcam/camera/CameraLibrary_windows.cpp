#include "camera/CameraLibrary.h"

#include <windows.h>

#include "cli/Failure.h"
#include "cli/SystemTraits.h"
#include "cli/Text.h"
#include "cli/WideText.h"

namespace nuveqcam {
namespace {

// Suppresses dialogs about a file that cannot be loaded; the tool reports the error itself.
class ErrorDialogSuppressor {
 public:
  ErrorDialogSuppressor() { SetThreadErrorMode(SEM_FAILCRITICALERRORS, &m_previous); }
  ErrorDialogSuppressor(const ErrorDialogSuppressor&) = delete;
  ErrorDialogSuppressor& operator=(const ErrorDialogSuppressor&) = delete;
  ~ErrorDialogSuppressor() { SetThreadErrorMode(m_previous, nullptr); }

 private:
  DWORD m_previous = 0;
};

std::wstring DefaultLibrary() {
  std::wstring path(kMaxPathLength, L'\0');
  path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
  path.erase(path.find_last_of(L'\\') + 1);
  return path + ToWide(ThisSystem().libraryFile);
}

// A name without a folder is a file in the current folder, not one to search for.
std::wstring ToAbsolutePath(const std::string& file) {
  const std::wstring name = ToWide(file);
  std::wstring path(kMaxPathLength, L'\0');
  path.resize(GetFullPathNameW(name.c_str(), static_cast<DWORD>(path.size()), path.data(), nullptr));
  return path.empty() ? name : path;
}

[[noreturn]] void ThrowLoadFailure(const std::wstring& file, const std::string& reason) {
  throw Failure(ExitCode::kUnexpected, "cannot load the camera library " + SanitizeForTerminal(ToUtf8(file)) +
                                           ": " + SanitizeForTerminal(reason) +
                                           "; specify its file with --library");
}

std::string LoadError(const std::wstring& file) {
  const DWORD code = GetLastError();
  // Windows reports the same error for a missing file and for a missing dependency of it.
  const bool exists = GetFileAttributesW(file.c_str()) != INVALID_FILE_ATTRIBUTES;
  return code == ERROR_MOD_NOT_FOUND && exists ? "a DLL that it needs is missing" : SystemMessage(code);
}

HMODULE ModuleOf(void* handle) { return static_cast<HMODULE>(handle); }

}  // namespace

CameraLibrary::CameraLibrary(const std::string& file) {
  const std::wstring path = file.empty() ? DefaultLibrary() : ToAbsolutePath(file);
  const ErrorDialogSuppressor suppressor;
  // Searches dependencies in the library's folder, but never in the current folder.
  m_handle = LoadLibraryExW(path.c_str(), nullptr,
                            LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_DEFAULT_DIRS);
  if (m_handle == nullptr) {
    ThrowLoadFailure(path, LoadError(path));
  }
  const auto getTable = reinterpret_cast<NUVEQGetCameraHandlerFunction>(
      reinterpret_cast<void*>(GetProcAddress(ModuleOf(m_handle), "NUVEQGetCameraHandler")));
  if (getTable == nullptr || getTable(&m_table) != NUVEQ_CAMERA_OK) {
    FreeLibrary(ModuleOf(m_handle));
    ThrowLoadFailure(path, "it does not export a camera handler table");
  }
}

CameraLibrary::~CameraLibrary() { FreeLibrary(ModuleOf(m_handle)); }

}  // namespace nuveqcam
