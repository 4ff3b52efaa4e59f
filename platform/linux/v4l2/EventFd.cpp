#include "v4l2/EventFd.h"

#include <sys/eventfd.h>
#include <unistd.h>
#include <cerrno>

#include <system_error>

namespace v4l2 {

EventFd::EventFd() : m_descriptor(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
  if (m_descriptor < 0) {
    throw std::system_error(errno, std::generic_category(), "eventfd");
  }
}

EventFd::~EventFd() { close(m_descriptor); }

// Both calls only fail if the descriptor already has the wanted state.
void EventFd::Signal() const { static_cast<void>(eventfd_write(m_descriptor, 1)); }

void EventFd::Clear() const {
  eventfd_t count = 0;
  static_cast<void>(eventfd_read(m_descriptor, &count));
}

}  // namespace v4l2
