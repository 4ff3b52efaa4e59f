// A V4L2 node, open.
#pragma once

#include <string>

#include "graph/CaptureSource.h"
#include "v4l2/SystemCalls.h"

// The result that stands for an error number of the system's.
HRESULT ResultOf(int error);

class V4l2Device {
 public:
  V4l2Device() = default;
  V4l2Device(const V4l2Device&) = delete;
  V4l2Device& operator=(const V4l2Device&) = delete;
  ~V4l2Device() { Close(); }

  // 0 or an error number. Never blocks.
  int Open(const std::string& path);
  void Close();
  bool IsOpen() const { return m_descriptor >= 0; }
  int Descriptor() const { return m_descriptor; }
  System& Kernel() const { return *m_system; }

  // 0 or an error number; repeats what a signal interrupted.
  int Ioctl(unsigned long request, void* argument) const;

 private:
  System* m_system = nullptr;
  int m_descriptor = -1;
};
