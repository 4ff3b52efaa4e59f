#include "support/LoadedLibrary.h"

#include <windows.h>

#include <array>
#include <utility>

namespace support {

namespace {

std::filesystem::path FileOfThisProgram() {
  std::array<wchar_t, 4096> name{};
  return {name.data(), name.data() + GetModuleFileNameW(nullptr, name.data(), name.size())};
}

}  // namespace

LoadedLibrary::LoadedLibrary(const std::string& fileName)
    : m_path(FileOfThisProgram().replace_filename(fileName)) {
  const HMODULE module = LoadLibraryW(m_path.c_str());
  m_handle = module;
  if (module == nullptr) {
    m_error = "error " + std::to_string(GetLastError()) + " when loading " + m_path.string();
    return;
  }
  GetCameraHandler = reinterpret_cast<NUVEQGetCameraHandlerFunction>(
      reinterpret_cast<void*>(GetProcAddress(module, "NUVEQGetCameraHandler")));
  if (GetCameraHandler == nullptr) {
    m_error = "no NUVEQGetCameraHandler in " + m_path.string();
  }
}

void LoadedLibrary::Unload() {
  if (void* const handle = std::exchange(m_handle, nullptr); handle != nullptr) {
    FreeLibrary(static_cast<HMODULE>(handle));
  }
}

bool LoadedLibrary::IsMapped() const { return GetModuleHandleW(m_path.c_str()) != nullptr; }

}  // namespace support
