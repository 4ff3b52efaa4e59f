#include "v4l2/V4l2Device.h"

#include <fcntl.h>
#include <cerrno>

namespace v4l2 {

HRESULT HresultFromErrno(int error) {
  switch (error) {
    case 0:
      return S_OK;
    case EBUSY:
      return com::kDeviceInUse;
    case EACCES:
    case EPERM:
      return E_ACCESSDENIED;
    case ENODEV:
    case ENOENT:
    case ENXIO:
      return com::kDeviceGone;
    case ENOSPC:
      return com::kNoBandwidth;
    case EMFILE:
    case ENFILE:
      return com::kTooManyOpen;
    case ENOMEM:
      return E_OUTOFMEMORY;
    case EIO:
    case ETIMEDOUT:
    case EPROTO:
      return com::kDeviceIoError;
    default:
      return E_FAIL;
  }
}

int V4l2Device::Open(const std::string& path) {
  m_system = &CurrentSystemCalls();
  do {
    m_descriptor = m_system->Open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  } while (m_descriptor < 0 && errno == EINTR);
  return m_descriptor < 0 ? errno : 0;
}

void V4l2Device::Close() {
  if (IsOpen()) {
    m_system->Close(m_descriptor);
    m_descriptor = -1;
  }
}

int V4l2Device::Ioctl(unsigned long request, void* argument) const {
  for (;;) {
    if (m_system->Ioctl(m_descriptor, request, argument) >= 0) {
      return 0;
    }
    if (errno != EINTR) {
      return errno;
    }
  }
}

}  // namespace v4l2
