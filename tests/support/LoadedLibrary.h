// The library under test, loaded as a platform loads it.
#pragma once

#include <filesystem>
#include <string>

#include "NUVEQCameraHandler.h"

class LoadedLibrary {
 public:
  // Loads a build of the library from the folder of the test program.
  explicit LoadedLibrary(const std::string& fileName);
  LoadedLibrary(const LoadedLibrary&) = delete;
  LoadedLibrary& operator=(const LoadedLibrary&) = delete;
  ~LoadedLibrary() { Unload(); }

  // Why loading failed; empty when it did not.
  const std::string& Error() const { return m_error; }
  // The export.
  int (*GetCameraHandler)(NUVEQCameraHandler*) = nullptr;
  // Unloads; everything static in the library is destroyed. Harmless twice.
  void Unload();
  // True when the system still has the library mapped.
  bool IsMapped() const;

 private:
  std::filesystem::path m_path;
  std::string m_error;
  void* m_handle = nullptr;
};
