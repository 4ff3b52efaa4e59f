// Memory behind whose last byte nothing may be read or written.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// A copy of bytes that ends where the memory of this process does: whoever goes past it ends the process.
class EndOfPage {
 public:
  explicit EndOfPage(const std::vector<std::uint8_t>& bytes);
  explicit EndOfPage(const std::string& text)
      : EndOfPage(std::vector<std::uint8_t>(text.begin(), text.end())) {}
  EndOfPage(const EndOfPage&) = delete;
  EndOfPage& operator=(const EndOfPage&) = delete;
  ~EndOfPage();

  const std::uint8_t* Bytes() const { return m_bytes; }
  const char* Text() const { return reinterpret_cast<const char*>(m_bytes); }

 private:
  void* m_pages = nullptr;
  std::size_t m_size = 0;  // of all pages, the forbidden one included
  std::uint8_t* m_bytes = nullptr;
};
