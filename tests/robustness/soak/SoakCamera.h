// Loads the library like a host and calls it through its function table.
#pragma once

#include <memory>
#include <string>

#include "support/LoadedLibrary.h"
#include "support/video/NumberReader.h"

namespace soak {

using video::PictureSize;

// All functions throw SoakFailure if a call does not return the expected result.
class SoakCamera {
 public:
  // Loads the library and registers the host's callbacks.
  SoakCamera() { Load(); }
  SoakCamera(const SoakCamera&) = delete;
  SoakCamera& operator=(const SoakCamera&) = delete;
  ~SoakCamera() = default;

  void Load();
  // Requires that the library is no longer mapped.
  void Unload();

  // Registers the host's service listener, or an empty one.
  void SetListener(bool isEnabled) const;
  // Queries and releases the capabilities. Requires one camera with resolutionCount resolutions.
  void Query(std::uint32_t resolutionCount) const;
  void Open(PictureSize size, int expected = 0, const std::string& id = "0") const;
  void Close(int expected = 1, const std::string& id = "0") const;

 private:
  NUVEQCameraHandler m_handler{};
  std::unique_ptr<LoadedLibrary> m_library;
};

}  // namespace soak
