// The PC's built-in camera, through the library's table.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "camera/CameraLibrary.h"
#include "camera/Capabilities.h"
#include "camera/CapturePlatform.h"
#include "camera/LibraryLog.h"
#include "recording/PacketQueue.h"

struct CameraRequest {
  std::string id;
  Size size;
  std::uint32_t fps = 0;
};

class Camera {
 public:
  // Both outlive it. One at a time: the library's callbacks know no context.
  Camera(const CameraLibrary& library, LibraryLog& log);
  Camera(const Camera&) = delete;
  Camera& operator=(const Camera&) = delete;
  ~Camera() { Close(); }

  // Finds the camera, which has to come before opening it. Throws Failure: kNoCamera, with every device that
  // was seen, or kCannotOpen.
  Capabilities Query();
  // Opens the camera; packets go to the queue, which outlives the session. Returns when the camera has
  // delivered its first frame. Throws Failure (kCannotOpen).
  void Open(const CameraRequest& request, PacketQueue& queue);
  // No packet arrives after it has returned. Harmless when nothing is open.
  void Close();

 private:
  const NUVEQCameraHandler& m_table;
  LibraryLog& m_log;
  std::string m_openId;
  bool m_isOpen = false;
};

// The camera while it delivers: opens it, and closes it on every way out, so that no packet comes for a queue
// that has gone. Both outlive it.
class OpenCamera {
 public:
  // Throws Failure as Camera::Open does.
  OpenCamera(Camera& camera, const CameraRequest& request, PacketQueue& queue)
      : m_camera(camera), m_queue(queue) {
    m_camera.Open(request, m_queue);
  }
  OpenCamera(const OpenCamera&) = delete;
  OpenCamera& operator=(const OpenCamera&) = delete;
  // Closing waits for a packet in progress, which nobody may make room for any more.
  ~OpenCamera() {
    m_queue.SetUnbounded();
    m_camera.Close();
  }

 private:
  Camera& m_camera;
  PacketQueue& m_queue;
};

// Why there is no camera, device by device, and what to do.
std::string NoCameraText(const std::vector<CaptureDeviceInfo>& seen);
