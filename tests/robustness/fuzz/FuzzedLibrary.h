// The library as the fuzz programs use it: linked in, so that the fuzzer sees what its bytes reach, over the
// scripted platform, and made anew as often as one likes.
#pragma once

#include <string>

#include "CameraOperator.h"
#include "NUVEQCameraHandler.h"
#include "support/HostCallbacks.h"
#include "support/scripted/ScriptedPlatform.h"

// What of the operator's state no result shows.
struct CameraOperatorTestAccess {
  static bool IsOpened(const CameraOperator& camera) { return camera.m_isOpened; }
  static bool HasControl(const CameraOperator& camera) { return static_cast<bool>(camera.m_mediaControl); }
};

class FuzzedLibrary {
 public:
  // Starts on that PC, with nothing left of the run before.
  explicit FuzzedLibrary(scripted::Pc pc);
  FuzzedLibrary(const FuzzedLibrary&) = delete;
  FuzzedLibrary& operator=(const FuzzedLibrary&) = delete;
  // Unloads, and requires that nothing is left.
  ~FuzzedLibrary();

  // What is static in the library ends and begins, as on unloading and loading.
  static void Reload();
  void RegisterCallbacks() const;

  // 0 with a record that was checked and has to be given back, or a documented failure with null.
  int Query(NUVEQCameraCapabilities*& record) const;
  void Release(NUVEQCameraCapabilities* record) const;
  int Open(const std::string& id, std::uint32_t width, std::uint32_t height, std::uint32_t fps) const;
  int Close() const;
  // Delivers a whole frame and waits for its packet. A graph runs.
  void DeliverAndReceive() const;
  // Query, open, a frame, close, all of which have to work on the PC as it is.
  void RunWholeSession(std::uint32_t width, std::uint32_t height) const;
  // Nothing is alive but what an open leaves on purpose, and the record that the caller still holds.
  void RequireNothingAlive(bool holdsRecord) const;

  static bool IsOpened() { return CameraOperatorTestAccess::IsOpened(CameraOperator::GetInstance()); }
  // Closing has something to work on.
  static bool HasControl() { return CameraOperatorTestAccess::HasControl(CameraOperator::GetInstance()); }
  // Bytes of a frame as the latest open request asked for them.
  std::size_t FrameSize() const;

  scripted::Platform& platform = scripted::Platform::Get();
  HostCallbacks& host = HostCallbacks::Get();
  NUVEQCameraHandler table{};
};
