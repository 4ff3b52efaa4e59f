// A descriptor that ends a wait in poll.
#pragma once

class WakeUp {
 public:
  // Throws std::system_error when the process has no descriptor left.
  WakeUp();
  WakeUp(const WakeUp&) = delete;
  WakeUp& operator=(const WakeUp&) = delete;
  ~WakeUp();

  // Readable from Signal to Clear. Any thread.
  void Signal() const;
  void Clear() const;
  int Descriptor() const { return m_descriptor; }

 private:
  int m_descriptor;
};
