// A buffer that detects accesses beyond its end.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace support {

// A copy of bytes that ends at a guard page: an access beyond the end crashes the process.
class GuardPageBuffer {
 public:
  explicit GuardPageBuffer(const std::vector<std::uint8_t>& bytes);
  explicit GuardPageBuffer(const std::string& text)
      : GuardPageBuffer(std::vector<std::uint8_t>(text.begin(), text.end())) {}
  GuardPageBuffer(const GuardPageBuffer&) = delete;
  GuardPageBuffer& operator=(const GuardPageBuffer&) = delete;
  ~GuardPageBuffer();

  const std::uint8_t* Bytes() const { return m_bytes; }
  const char* Text() const { return reinterpret_cast<const char*>(m_bytes); }

 private:
  void* m_pages = nullptr;
  std::size_t m_size = 0;  // of all pages including the guard page
  std::uint8_t* m_bytes = nullptr;
};

}  // namespace support
