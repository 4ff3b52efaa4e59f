// Base class of the COM enumerators.
#pragma once

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

#include "com/ComObject.h"

namespace com {

// Enumerates a snapshot of items. Not thread-safe: one thread at a time may use an enumerator.
template <typename Interface, typename Output, typename Item>
class Enumerator : public ComObject<Interface> {
 public:
  explicit Enumerator(std::vector<Item> items) : m_items(std::move(items)) {}

  // If an item fails after others were copied, returns S_FALSE with those; the next call then returns the
  // failure.
  HRESULT STDMETHODCALLTYPE Next(ULONG count, Output** out, ULONG* fetched) override {
    if (out == nullptr || (fetched == nullptr && count != 1)) {
      return E_POINTER;
    }
    ULONG copied = 0;
    HRESULT hr = S_OK;
    for (; copied < count && m_next < m_items.size(); ++copied, ++m_next) {
      hr = CatchToHresult([&] { return CopyItem(m_items[m_next], &out[copied]); });
      if (hr != S_OK) {
        break;
      }
    }
    if (copied < count) {
      out[copied] = nullptr;
    }
    if (fetched != nullptr) {
      *fetched = copied;
    }
    if (copied == count) {
      return S_OK;
    }
    return hr != S_OK && copied == 0 ? hr : S_FALSE;
  }

 protected:
  // Gives the caller its own copy of, or reference to, an item.
  virtual HRESULT CopyItem(const Item& item, Output** out) = 0;

  void SeekTo(std::size_t position) { m_next = std::min(position, m_items.size()); }

 private:
  std::vector<Item> m_items;
  std::size_t m_next = 0;
};

}  // namespace com
