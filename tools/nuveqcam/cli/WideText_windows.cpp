#include "cli/WideText.h"

#include <windows.h>

#include <utf8.h>

#include <array>
#include <charconv>
#include <iterator>

#include "cli/Text.h"

namespace nuveqcam {
namespace {

std::string CodeText(unsigned long code) {
  std::array<char, 16> digits{};
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), code, 16).ptr;
  return "error 0x" + std::string(digits.data(), end);
}

}  // namespace

std::wstring ToWide(std::string_view text) {
  const std::string valid = utf8::replace_invalid(text);
  std::wstring wide;
  utf8::utf8to16(valid.begin(), valid.end(), std::back_inserter(wide));
  return wide;
}

std::string SystemMessage(unsigned long code) {
  std::array<wchar_t, 512> text{};
  const DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                                      code, 0, text.data(), static_cast<DWORD>(text.size()), nullptr);
  // System messages end with a period and a line break.
  std::wstring_view message(text.data(), length);
  const std::size_t last = message.find_last_not_of(L" \t\r\n.");
  message = message.substr(0, last + 1);
  return message.empty() ? CodeText(code) : ToUtf8(message);
}

std::string ComMessage(long result) { return SystemMessage(static_cast<unsigned long>(result)); }

}  // namespace nuveqcam
