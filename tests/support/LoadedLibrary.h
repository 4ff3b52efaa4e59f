// The library under test, loaded at run time as a host loads it.
#pragma once

#include <filesystem>
#include <string>

#include "NUVEQCameraHandler.h"

namespace support {

class LoadedLibrary {
 public:
  // Loads the library of that file name from the folder of the test program.
  explicit LoadedLibrary(const std::string& fileName);
  LoadedLibrary(const LoadedLibrary&) = delete;
  LoadedLibrary& operator=(const LoadedLibrary&) = delete;
  ~LoadedLibrary() { Unload(); }

  // The error message of a failed load; empty on success.
  const std::string& Error() const { return m_error; }
  // The exported function.
  NUVEQGetCameraHandlerFunction GetCameraHandler = nullptr;
  // Unloads the library. No effect if it is not loaded.
  void Unload();
  // True while the library is mapped into the process.
  bool IsMapped() const;

 private:
  std::filesystem::path m_path;
  std::string m_error;
  void* m_handle = nullptr;
};

}  // namespace support

using support::LoadedLibrary;
