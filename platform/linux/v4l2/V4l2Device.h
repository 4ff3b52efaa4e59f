// An open V4L2 device node.
#pragma once

#include <string>

#include "com/Results.h"
#include "v4l2/SystemCalls.h"

namespace v4l2 {

// The result code for an error number.
HRESULT HresultFromErrno(int error);

class V4l2Device {
 public:
  V4l2Device() = default;
  V4l2Device(const V4l2Device&) = delete;
  V4l2Device& operator=(const V4l2Device&) = delete;
  ~V4l2Device() { Close(); }

  // Returns 0 or an error number. Does not block. The device must be closed.
  int Open(const std::string& path);
  void Close();
  bool IsOpen() const { return m_descriptor >= 0; }
  int Descriptor() const { return m_descriptor; }
  SystemCalls& System() const { return *m_system; }

  // Returns 0 or an error number. Repeats calls that a signal interrupted.
  int Ioctl(unsigned long request, void* argument) const;

 private:
  SystemCalls* m_system = nullptr;
  int m_descriptor = -1;
};

}  // namespace v4l2
