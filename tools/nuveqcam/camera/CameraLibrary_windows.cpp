#include "camera/CameraLibrary.h"

#include <windows.h>

#include "cli/Failure.h"
#include "cli/SystemTraits.h"
#include "cli/Text.h"
#include "cli/WideText.h"

namespace {

// No dialogue about a file that cannot be loaded: the tool says so itself.
class WithoutDialogues {
 public:
  WithoutDialogues() { SetThreadErrorMode(SEM_FAILCRITICALERRORS, &m_earlier); }
  WithoutDialogues(const WithoutDialogues&) = delete;
  WithoutDialogues& operator=(const WithoutDialogues&) = delete;
  ~WithoutDialogues() { SetThreadErrorMode(m_earlier, nullptr); }

 private:
  DWORD m_earlier = 0;
};

std::wstring LibraryBesideProgram() {
  std::wstring path(kLongestPath, L'\0');
  path.resize(GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size())));
  path.erase(path.find_last_of(L'\\') + 1);
  return path + Wide(ThisSystem().libraryFile);
}

// A name without a folder means a file here, not one that the system would search for.
std::wstring LibraryNamed(const std::string& file) {
  const std::wstring name = Wide(file);
  std::wstring path(kLongestPath, L'\0');
  path.resize(GetFullPathNameW(name.c_str(), static_cast<DWORD>(path.size()), path.data(), nullptr));
  return path.empty() ? name : path;
}

[[noreturn]] void FailToLoad(const std::wstring& file, const std::string& reason) {
  throw Failure(ExitCode::kUnexpected, "cannot load the camera library " + SanitizeForTerminal(Utf8(file)) +
                                           ": " + SanitizeForTerminal(reason) +
                                           "; give its file with --library");
}

std::string LoadError(const std::wstring& file) {
  const DWORD code = GetLastError();
  // The system says the same of a file that is not there and of one that needs another that is not there.
  const bool isThere = GetFileAttributesW(file.c_str()) != INVALID_FILE_ATTRIBUTES;
  return code == ERROR_MOD_NOT_FOUND && isThere ? "a DLL that it needs is missing" : SystemMessage(code);
}

HMODULE ModuleOf(void* handle) { return static_cast<HMODULE>(handle); }

}  // namespace

CameraLibrary::CameraLibrary(const std::string& file) {
  const std::wstring path = file.empty() ? LibraryBesideProgram() : LibraryNamed(file);
  const WithoutDialogues withoutDialogues;
  // What it needs may be beside it; never what happens to be in the current folder.
  m_handle = LoadLibraryExW(path.c_str(), nullptr,
                            LOAD_LIBRARY_SEARCH_DLL_LOAD_DIR | LOAD_LIBRARY_SEARCH_DEFAULT_DIRS);
  if (m_handle == nullptr) {
    FailToLoad(path, LoadError(path));
  }
  using GetTable = std::int32_t (*)(NUVEQCameraHandler*);
  const auto getTable = reinterpret_cast<GetTable>(
      reinterpret_cast<void*>(GetProcAddress(ModuleOf(m_handle), "NUVEQGetCameraHandler")));
  if (getTable == nullptr || getTable(&m_table) != NUVEQ_CAMERA_OK) {
    FreeLibrary(ModuleOf(m_handle));
    FailToLoad(path, "it gives no table of camera functions");
  }
}

CameraLibrary::~CameraLibrary() { FreeLibrary(ModuleOf(m_handle)); }
