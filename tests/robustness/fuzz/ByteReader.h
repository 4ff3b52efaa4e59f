// Decodes structured values from fuzzer input. Reads past the end return 0, which every fuzz target
// interprets as the default case, so short inputs are valid.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>

namespace fuzz {

class ByteReader {
 public:
  ByteReader(const std::uint8_t* data, std::size_t size) : m_bytes(data, size) {}

  bool IsEmpty() const { return m_bytes.empty(); }
  std::uint8_t Byte() { return Value<std::uint8_t>(); }
  // Returns a number from 0 to count - 1; count is at most 256.
  std::size_t Below(std::size_t count) { return Byte() % count; }

  // Reads a number in host byte order.
  template <typename Number>
  Number Value() {
    Number number{};
    const std::span<const std::uint8_t> bytes = Take(sizeof(number));
    if (!bytes.empty()) {
      std::memcpy(&number, bytes.data(), bytes.size());
    }
    return number;
  }

  template <typename Item, std::size_t kCount>
  const Item& OneOf(const std::array<Item, kCount>& items) {
    return items[Below(kCount)];
  }

  // Consumes up to count bytes; fewer at the end of the input.
  std::span<const std::uint8_t> Take(std::size_t count) {
    const std::span<const std::uint8_t> taken = m_bytes.first(std::min(count, m_bytes.size()));
    m_bytes = m_bytes.subspan(taken.size());
    return taken;
  }
  std::span<const std::uint8_t> TakeAll() { return Take(m_bytes.size()); }

 private:
  std::span<const std::uint8_t> m_bytes;
};

}  // namespace fuzz
