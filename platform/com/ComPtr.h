// Owns one reference to a COM interface and releases it when reset or destroyed.
#pragma once

#include <utility>

template <typename Interface>
class ComPtr {
 public:
  ComPtr() = default;
  // Adds a reference.
  explicit ComPtr(Interface* shared) : m_interface(shared) {
    if (m_interface != nullptr) {
      m_interface->AddRef();
    }
  }
  ComPtr(const ComPtr& other) : ComPtr(other.m_interface) {}
  ComPtr(ComPtr&& other) noexcept : m_interface(std::exchange(other.m_interface, nullptr)) {}
  ComPtr& operator=(ComPtr other) noexcept {
    std::swap(m_interface, other.m_interface);
    return *this;
  }
  ~ComPtr() { Reset(); }

  Interface* Get() const { return m_interface; }
  Interface* operator->() const { return m_interface; }
  explicit operator bool() const { return m_interface != nullptr; }

  void Reset() {
    if (Interface* const released = std::exchange(m_interface, nullptr); released != nullptr) {
      released->Release();
    }
  }

  // Output parameter for a call that returns a reference. Releases the current interface first.
  Interface** Put() {
    Reset();
    return &m_interface;
  }
  void** PutVoid() { return reinterpret_cast<void**>(Put()); }

  // Gives up ownership without releasing.
  [[nodiscard]] Interface* Detach() { return std::exchange(m_interface, nullptr); }

 private:
  Interface* m_interface = nullptr;
};
