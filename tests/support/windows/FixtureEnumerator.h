// Enumerators over a list that was taken when they were made. Each is for one thread at a time.
#pragma once

#include <algorithm>
#include <utility>
#include <vector>

#include "support/windows/FixtureObject.h"

namespace fixtures {

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
    while (handedOut < count && m_next < m_items.size()) {
      hr = Guarded([&] { return HandOutItem(m_items[m_next], &out[handedOut]); });
      if (FAILED(hr)) {
        break;
      }
      ++handedOut;
      ++m_next;
    }
    if (fetched != nullptr) {
      *fetched = handedOut;
    }
    if (handedOut == count) {
      return S_OK;
    }
    return FAILED(hr) && handedOut == 0 ? hr : S_FALSE;
  }

  HRESULT STDMETHODCALLTYPE Skip(ULONG count) override {
    const std::size_t skipped = std::min<std::size_t>(count, m_items.size() - m_next);
    m_next += skipped;
    return skipped == count ? S_OK : S_FALSE;
  }

  HRESULT STDMETHODCALLTYPE Reset() override {
    m_next = 0;
    return S_OK;
  }

 protected:
  // One item as a caller gets it.
  virtual HRESULT HandOutItem(const Item& item, Output** out) = 0;

  template <typename Derived>
  HRESULT CloneInto(Interface** out) {
    if (out == nullptr) {
      return E_POINTER;
    }
    *out = nullptr;
    return Guarded([&] {
      ComPtr<Derived> clone = MakeObject<Derived>(m_items);
      clone->Skip(static_cast<ULONG>(m_next));
      *out = clone.Detach();
      return S_OK;
    });
  }

 private:
  std::vector<Item> m_items;
  std::size_t m_next = 0;
};

}  // namespace fixtures
