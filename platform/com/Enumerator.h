// Enumerators over a list that was taken when they were made. Each is for one thread at a time.
#pragma once

#include <vector>

#include "com/ComObject.h"

template <typename Interface, typename Output, typename Item>
class Enumerator : public ComObject<Interface> {
 public:
  explicit Enumerator(std::vector<Item> items) : m_items(std::move(items)) {}

  HRESULT STDMETHODCALLTYPE Next(ULONG count, Output** out, ULONG* fetched) override {
    if (out == nullptr || (fetched == nullptr && count != 1)) {
      return E_POINTER;
    }
    ULONG handedOut = 0;
    HRESULT hr = S_OK;
    for (; handedOut < count && m_next < m_items.size() && hr == S_OK; ++handedOut, ++m_next) {
      hr = Guarded([&] { return HandOutItem(m_items[m_next], &out[handedOut]); });
      if (hr != S_OK) {
        break;
      }
    }
    if (handedOut < count) {
      out[handedOut] = nullptr;
    }
    if (fetched != nullptr) {
      *fetched = handedOut;
    }
    // What was handed out before a failure is the caller's; the failure is the next call's to meet again.
    return handedOut == count ? S_OK : hr != S_OK && handedOut == 0 ? hr : S_FALSE;
  }

 protected:
  // One item as a caller gets it.
  virtual HRESULT HandOutItem(Item& item, Output** out) = 0;
  void StartOver() { m_next = 0; }

 private:
  std::vector<Item> m_items;
  std::size_t m_next = 0;
};
