#include "cli/OpenBrowser.h"

#include <windows.h>

#include <shellapi.h>

#include "cli/WideText.h"

namespace nuveqcam {

std::function<bool()> OpenBrowser(const std::string& address) {
  constexpr INT_PTR kMaxError = 32;
  auto* const result =
      ShellExecuteW(nullptr, L"open", ToWide(address).c_str(), nullptr, nullptr, SW_SHOWNORMAL);
  return [hasFailed = reinterpret_cast<INT_PTR>(result) <= kMaxError] { return hasFailed; };
}

}  // namespace nuveqcam
