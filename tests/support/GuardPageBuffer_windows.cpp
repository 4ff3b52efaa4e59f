#include "support/GuardPageBuffer.h"

#include <windows.h>

#include <algorithm>
#include <new>

namespace support {

GuardPageBuffer::GuardPageBuffer(const std::vector<std::uint8_t>& bytes) {
  SYSTEM_INFO system{};
  GetSystemInfo(&system);
  const std::size_t page = system.dwPageSize;
  const std::size_t readable = (bytes.size() + page - 1) / page * page;
  m_size = readable + page;
  // The last page is reserved but never committed.
  m_pages = VirtualAlloc(nullptr, m_size, MEM_RESERVE, PAGE_NOACCESS);
  if (m_pages == nullptr) {
    throw std::bad_alloc();
  }
  if (readable != 0 && VirtualAlloc(m_pages, readable, MEM_COMMIT, PAGE_READWRITE) == nullptr) {
    VirtualFree(m_pages, 0, MEM_RELEASE);
    throw std::bad_alloc();
  }
  m_bytes = static_cast<std::uint8_t*>(m_pages) + readable - bytes.size();
  std::copy(bytes.begin(), bytes.end(), m_bytes);
}

GuardPageBuffer::~GuardPageBuffer() { VirtualFree(m_pages, 0, MEM_RELEASE); }

}  // namespace support
