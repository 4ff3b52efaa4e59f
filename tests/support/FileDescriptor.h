// A file descriptor with one owner.
#pragma once

#include <unistd.h>

#include <utility>

namespace support {

class FileDescriptor {
 public:
  explicit FileDescriptor(int value = -1) : m_value(value) {}
  FileDescriptor(FileDescriptor&& other) noexcept : m_value(std::exchange(other.m_value, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    Close();
    m_value = std::exchange(other.m_value, -1);
    return *this;
  }
  ~FileDescriptor() { Close(); }

  int Get() const { return m_value; }
  void Close() {
    if (const int value = std::exchange(m_value, -1); value >= 0) {
      close(value);
    }
  }

 private:
  int m_value;
};

}  // namespace support

using support::FileDescriptor;
