#include "support/GuardPageBuffer.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <new>

namespace support {

GuardPageBuffer::GuardPageBuffer(const std::vector<std::uint8_t>& bytes) {
  const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
  const std::size_t readable = (bytes.size() + page - 1) / page * page;
  m_size = readable + page;
  m_pages = mmap(nullptr, m_size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (m_pages == MAP_FAILED) {
    throw std::bad_alloc();
  }
  std::uint8_t* const end = static_cast<std::uint8_t*>(m_pages) + readable;
  mprotect(end, page, PROT_NONE);
  m_bytes = end - bytes.size();
  std::copy(bytes.begin(), bytes.end(), m_bytes);
}

GuardPageBuffer::~GuardPageBuffer() { munmap(m_pages, m_size); }

}  // namespace support
