// Access to the built-in camera through the library's function table.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "camera/CameraLibrary.h"
#include "camera/Capabilities.h"
#include "camera/CapturePlatform.h"
#include "camera/LibraryLog.h"
#include "recording/PacketQueue.h"

namespace nuveqcam {

struct CameraRequest {
  std::string id;
  Size size;
  std::uint32_t fps = 0;
};

// What the library has reported through its callbacks.
struct CallbackRecord {
  struct Status {
    std::string id;
    NUVEQServiceStatus status;
  };
  std::vector<Status> statuses;
  std::string packetId;                 // the id that came with the latest packet
  std::uint64_t packetsAfterClose = 0;  // packets that arrived although the camera was closed
};

class Camera {
 public:
  // The library and the log must outlive the object. Only one object may exist at a time, because the
  // library's callbacks have no context argument.
  Camera(const CameraLibrary& library, LibraryLog& log);
  Camera(const Camera&) = delete;
  Camera& operator=(const Camera&) = delete;
  ~Camera() { Close(); }

  // Finds the camera; must be called before Open. Throws Failure: kNoCamera, with a list of all capture
  // devices, or kCannotOpen.
  Capabilities Query();
  // Opens the camera and returns after its first frame. Packets go to the queue, which must outlive the
  // session. Throws Failure (kCannotOpen).
  void Open(const CameraRequest& request, PacketQueue& queue);
  // No packet arrives after it returns. Does nothing if the camera is not open, and returns
  // NUVEQ_CAMERA_CLOSE_INCOMPLETE; else returns the library's result.
  std::int32_t Close();

  // For checks of the library's behavior: its functions, and what it has reported since the last Clear.
  const NUVEQCameraHandler& Table() const { return m_table; }
  static CallbackRecord Callbacks();
  static void ClearCallbacks();

 private:
  const NUVEQCameraHandler& m_table;
  LibraryLog& m_log;
  std::string m_openId;
  bool m_isOpen = false;
};

// Opens the camera for the lifetime of the object. The camera and the queue must outlive it.
class OpenCamera {
 public:
  // Throws Failure as Camera::Open does.
  OpenCamera(Camera& camera, const CameraRequest& request, PacketQueue& queue)
      : m_camera(camera), m_queue(queue) {
    m_camera.Open(request, m_queue);
  }
  OpenCamera(const OpenCamera&) = delete;
  OpenCamera& operator=(const OpenCamera&) = delete;
  // Close waits for a packet that is being delivered, which must not wait for room in the queue.
  ~OpenCamera() {
    m_queue.SetUnbounded();
    m_camera.Close();
  }

 private:
  Camera& m_camera;
  PacketQueue& m_queue;
};

// The message that the PC has no built-in camera: advice, and the reason for each capture device.
std::string NoCameraText(const std::vector<CaptureDeviceInfo>& devices);

}  // namespace nuveqcam
