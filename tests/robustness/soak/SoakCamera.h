// The library as a platform has it: loaded, and called through its table.
#pragma once

#include <memory>
#include <string>

#include "SoakOptions.h"
#include "support/LoadedLibrary.h"

// What the library answers otherwise than it should is thrown as SoakFailure.
class Camera {
 public:
  // Loads the library and registers the host's callbacks.
  Camera() { Load(); }
  Camera(const Camera&) = delete;
  Camera& operator=(const Camera&) = delete;
  ~Camera() = default;

  void Load();
  // Nothing of the library stays.
  void Unload();

  // The host's reports are made, or not.
  void Listen(bool listens) const;
  // Queries, reads the records and releases them. The camera offers that many sizes.
  void Query(std::uint32_t sizes) const;
  void Open(PictureSize size, int expected = 0, const std::string& id = "0") const;
  void Close(int expected = 1, const std::string& id = "0") const;

 private:
  NUVEQCameraHandler m_handler{};
  std::unique_ptr<LoadedLibrary> m_library;
};
