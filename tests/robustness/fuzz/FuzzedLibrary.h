// The camera library for fuzz targets: linked statically, so that libFuzzer sees its coverage, on top of the
// scripted platform.
#pragma once

#include <string>

#include "CameraOperator.h"
#include "NUVEQCameraHandler.h"
#include "support/HostCallbacks.h"
#include "support/scripted/ScriptedPlatform.h"

// Access to private state of CameraOperator.
struct CameraOperatorTestAccess {
  static bool IsOpened(const CameraOperator& camera) { return camera.m_isOpened; }
  static bool HasControl(const CameraOperator& camera) { return static_cast<bool>(camera.m_mediaControl); }
};

namespace fuzz {

class FuzzedLibrary {
 public:
  // Resets the platform and the host, and presents the PC.
  explicit FuzzedLibrary(scripted::Pc pc);
  FuzzedLibrary(const FuzzedLibrary&) = delete;
  FuzzedLibrary& operator=(const FuzzedLibrary&) = delete;
  // Simulates unloading and requires that nothing is leaked.
  ~FuzzedLibrary();

  // Destroys and recreates the static objects of the library, like unloading and loading it.
  static void Reload();
  void RegisterCallbacks() const;

  // Queries and checks the capability record. Returns 0 and a record for Release, or an error and null.
  int Query(NUVEQCameraCapabilities*& record) const;
  void Release(NUVEQCameraCapabilities* record) const;
  int Open(const std::string& id, std::uint32_t width, std::uint32_t height, std::uint32_t fps) const;
  int Close() const;
  // Delivers a complete frame and waits for its packet. Requires a running graph.
  void DeliverAndReceive() const;
  // Requires that querying, opening, one frame and closing succeed with the current PC.
  void RunWholeSession(std::uint32_t width, std::uint32_t height) const;
  // Requires that no object is alive except those that opening leaks by design, and the caller's record.
  void RequireNothingAlive(bool holdsRecord) const;

  static bool IsOpened() { return CameraOperatorTestAccess::IsOpened(CameraOperator::GetInstance()); }
  // Whether there is a graph to close.
  static bool HasControl() { return CameraOperatorTestAccess::HasControl(CameraOperator::GetInstance()); }
  // Size in bytes of the frames that the latest open request configured.
  std::size_t FrameSize() const;

  scripted::Platform& platform = scripted::Platform::Get();
  HostCallbacks& host = HostCallbacks::Get();
  NUVEQCameraHandler table{};
};

}  // namespace fuzz
