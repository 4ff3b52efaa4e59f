#include "support/windows/RegistryKey.h"

#include <system_error>

namespace fixtures {

void CheckStatus(LSTATUS status, const char* what) {
  if (status != ERROR_SUCCESS) {
    throw std::system_error(static_cast<int>(status), std::system_category(), what);
  }
}

void CheckResult(HRESULT result, const char* what) {
  if (FAILED(result)) {
    throw std::system_error(static_cast<int>(result), std::system_category(), what);
  }
}

RegistryKey::RegistryKey(const std::wstring& path) {
  CheckStatus(RegCreateKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, nullptr, 0, KEY_READ | KEY_WRITE, nullptr,
                              &m_key, nullptr),
              "open a registry key");
}

RegistryKey::~RegistryKey() { RegCloseKey(m_key); }

void RegistryKey::SetText(const std::wstring& name, const std::wstring& text) {
  CheckStatus(RegSetValueExW(m_key, name.c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                             static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t))),
              "write a registry value");
}

void RegistryKey::SetNumber(const std::wstring& name, std::uint32_t number) {
  CheckStatus(RegSetValueExW(m_key, name.c_str(), 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number),
                             sizeof(number)),
              "write a registry value");
}

void DeleteRegistryKey(const std::wstring& path) {
  const LSTATUS result = RegDeleteTreeW(HKEY_LOCAL_MACHINE, path.c_str());
  if (result != ERROR_FILE_NOT_FOUND) {
    CheckStatus(result, "delete a registry key");
  }
}

bool HasRegistryKey(const std::wstring& path) {
  HKEY key = nullptr;
  if (RegOpenKeyExW(HKEY_LOCAL_MACHINE, path.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) {
    return false;
  }
  RegCloseKey(key);
  return true;
}

}  // namespace fixtures
