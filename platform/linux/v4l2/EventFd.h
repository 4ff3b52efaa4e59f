// An eventfd that ends a wait in poll.
#pragma once

namespace v4l2 {

class EventFd {
 public:
  // Throws std::system_error if the process has no descriptor left.
  EventFd();
  EventFd(const EventFd&) = delete;
  EventFd& operator=(const EventFd&) = delete;
  ~EventFd();

  // The descriptor is readable from Signal to Clear. May be called from any thread.
  void Signal() const;
  void Clear() const;
  int Descriptor() const { return m_descriptor; }

 private:
  int m_descriptor;
};

}  // namespace v4l2
