#include "cli/Text.h"

#include <utf8.h>

#include <algorithm>
#include <array>
#include <charconv>

namespace nuveqcam {
namespace {

bool IsScalarValue(char32_t character) {
  return character <= 0x10FFFF && (character < 0xD800 || character > 0xDFFF);
}

// UTF-16 surrogates.
bool IsHighSurrogate(char32_t code) { return code >= 0xD800 && code < 0xDC00; }
bool IsLowSurrogate(char32_t code) { return code >= 0xDC00 && code < 0xE000; }

// C0, DEL and C1.
bool IsControl(char32_t character) { return character < 0x20 || (character >= 0x7F && character < 0xA0); }

// Bidirectional formatting characters, which would also reorder the text that follows.
bool IsBidiControl(char32_t character) {
  return (character >= 0x202A && character <= 0x202E) || (character >= 0x2066 && character <= 0x2069);
}

}  // namespace

std::string Decimal(double number, int decimals) {
  std::array<char, 400> digits{};
  const auto [end, error] =
      std::to_chars(digits.data(), digits.data() + digits.size(), number, std::chars_format::fixed, decimals);
  return error == std::errc{} ? std::string(digits.data(), end) : "?";
}

std::size_t CodePointCount(std::string_view text) {
  // Continuation bytes begin with the bits 10.
  return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80U;
  }));
}

std::string PadRight(std::string text, std::size_t columns) {
  text.append(columns - std::min(CodePointCount(text), columns), ' ');
  return text;
}

std::string PadLeft(std::string text, std::size_t columns) {
  text.insert(0, columns - std::min(CodePointCount(text), columns), ' ');
  return text;
}

std::string SanitizeForTerminal(std::string_view text) {
  const std::string valid = utf8::replace_invalid(text);
  std::string sanitized;
  for (auto next = valid.begin(); next != valid.end();) {
    const char32_t character = utf8::next(next, valid.end());
    utf8::append(IsControl(character) || IsBidiControl(character) ? U'?' : character, sanitized);
  }
  return sanitized;
}

// Decodes surrogates itself, because utfcpp throws for unpaired ones instead of replacing them.
std::string ToUtf8(std::wstring_view text) {
  constexpr char32_t kReplacement = 0xFFFD;
  std::string converted;
  for (std::size_t i = 0; i < text.size(); ++i) {
    auto code = static_cast<char32_t>(text[i]);
    if (i + 1 < text.size() && IsHighSurrogate(code) && IsLowSurrogate(static_cast<char32_t>(text[i + 1]))) {
      code = 0x10000 + ((code - 0xD800) << 10U) + (static_cast<char32_t>(text[++i]) - 0xDC00);
    }
    utf8::append(IsScalarValue(code) ? code : kReplacement, converted);
  }
  return converted;
}

}  // namespace nuveqcam
