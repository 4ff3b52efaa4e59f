#include "v4l2/EventFd.h"

#include <sys/eventfd.h>
#include <unistd.h>
#include <cerrno>

#include <system_error>

WakeUp::WakeUp() : m_descriptor(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
  if (m_descriptor < 0) {
    throw std::system_error(errno, std::generic_category(), "eventfd");
  }
}

WakeUp::~WakeUp() { close(m_descriptor); }

// The calls can fail only by finding the state that they are to bring about.
void WakeUp::Signal() const { static_cast<void>(eventfd_write(m_descriptor, 1)); }

void WakeUp::Clear() const {
  eventfd_t count = 0;
  static_cast<void>(eventfd_read(m_descriptor, &count));
}
