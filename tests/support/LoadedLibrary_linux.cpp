#include "support/LoadedLibrary.h"

#include <dlfcn.h>

#include <utility>

namespace support {

LoadedLibrary::LoadedLibrary(const std::string& fileName)
    : m_path(std::filesystem::read_symlink("/proc/self/exe").replace_filename(fileName)) {
  m_handle = dlopen(m_path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (m_handle == nullptr) {
    m_error = dlerror();  // NOLINT(concurrency-mt-unsafe): tests load on one thread
    return;
  }
  GetCameraHandler =
      reinterpret_cast<NUVEQGetCameraHandlerFunction>(dlsym(m_handle, "NUVEQGetCameraHandler"));
  if (GetCameraHandler == nullptr) {
    m_error = "no NUVEQGetCameraHandler in " + m_path.string();
  }
}

void LoadedLibrary::Unload() {
  if (void* const handle = std::exchange(m_handle, nullptr); handle != nullptr) {
    dlclose(handle);
  }
}

bool LoadedLibrary::IsMapped() const {
  void* const handle = dlopen(m_path.c_str(), RTLD_NOW | RTLD_NOLOAD);
  if (handle != nullptr) {
    dlclose(handle);
  }
  return handle != nullptr;
}

}  // namespace support
