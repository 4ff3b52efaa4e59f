// The camera library, loaded at run time as a platform loads it.
#pragma once

#include <string>

#include "NUVEQCameraHandler.h"

class CameraLibrary {
 public:
  // Loads the file; empty: the library beside the program, or, where programs and libraries are installed
  // apart, where the system finds it. Throws Failure (kUnexpected) when it cannot be loaded or has no handler
  // table.
  explicit CameraLibrary(const std::string& file);
  CameraLibrary(const CameraLibrary&) = delete;
  CameraLibrary& operator=(const CameraLibrary&) = delete;
  // Unloads it. The camera must have been closed.
  ~CameraLibrary();

  const NUVEQCameraHandler& Table() const { return m_table; }

 private:
  void* m_handle = nullptr;
  NUVEQCameraHandler m_table{};
};
