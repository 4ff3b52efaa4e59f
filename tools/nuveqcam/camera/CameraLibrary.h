// The camera library, loaded at run time.
#pragma once

#include <string>

#include "NUVEQCameraHandler.h"

namespace nuveqcam {

class CameraLibrary {
 public:
  // Loads the file. If it is empty, loads the library in the program's folder, or on Linux the one that the
  // dynamic linker finds. Throws Failure (kUnexpected) if the library cannot be loaded or has no function
  // table.
  explicit CameraLibrary(const std::string& file);
  CameraLibrary(const CameraLibrary&) = delete;
  CameraLibrary& operator=(const CameraLibrary&) = delete;
  // Unloads the library. The camera must be closed.
  ~CameraLibrary();

  const NUVEQCameraHandler& Table() const { return m_table; }

 private:
  void* m_handle = nullptr;
  NUVEQCameraHandler m_table{};
};

}  // namespace nuveqcam
