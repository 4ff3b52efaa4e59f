#include "cli/Text.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace nuveqcam {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

void AppendUtf8(std::string& text, char32_t character) {
  const auto append = [&](char32_t byte) { text += static_cast<char>(static_cast<unsigned char>(byte)); };
  const auto appendTail = [&](unsigned shift) { append(0x80U | ((character >> shift) & 0x3FU)); };
  if (character < 0x80) {
    append(character);
  } else if (character < 0x800) {
    append(0xC0U | (character >> 6U));
    appendTail(0);
  } else if (character < 0x10000) {
    append(0xE0U | (character >> 12U));
    appendTail(6);
    appendTail(0);
  } else {
    append(0xF0U | (character >> 18U));
    appendTail(12);
    appendTail(6);
    appendTail(0);
  }
}

bool IsScalarValue(char32_t character) {
  return character <= 0x10FFFF && (character < 0xD800 || character > 0xDFFF);
}

// UTF-16 surrogates.
bool IsHighSurrogate(char32_t code) { return code >= 0xD800 && code < 0xDC00; }
bool IsLowSurrogate(char32_t code) { return code >= 0xDC00 && code < 0xE000; }

// Removes the next character from the front of UTF-8 text; one byte if it is invalid.
char32_t PopCharacter(std::string_view& text) {
  const auto first = static_cast<unsigned char>(text.front());
  text.remove_prefix(1);
  if (first < 0x80) {
    return first;
  }
  const std::size_t tail = first >= 0xF0 ? 3 : first >= 0xE0 ? 2 : 1;
  constexpr std::array<char32_t, 4> kMinCharacter{0, 0x80, 0x800, 0x10000};
  if (first < 0xC2 || first > 0xF4 || text.size() < tail) {
    return kReplacement;
  }
  char32_t character = first & (0x3FU >> tail);
  for (std::size_t i = 0; i < tail; ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if ((byte & 0xC0U) != 0x80) {
      return kReplacement;
    }
    character = character << 6U | (byte & 0x3FU);
  }
  if (character < kMinCharacter[tail] || !IsScalarValue(character)) {
    return kReplacement;
  }
  text.remove_prefix(tail);
  return character;
}

std::string EscapeCode(char32_t character) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  return {'\\', 'u', '0', '0', kDigits[character >> 4U & 15U], kDigits[character & 15U]};
}

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
  std::string sanitized;
  while (!text.empty()) {
    const char32_t character = PopCharacter(text);
    AppendUtf8(sanitized, IsControl(character) || IsBidiControl(character) ? U'?' : character);
  }
  return sanitized;
}

std::string JsonString(std::string_view text) {
  std::string quoted = "\"";
  while (!text.empty()) {
    const char32_t character = PopCharacter(text);
    if (character == U'"' || character == U'\\') {
      quoted += '\\';
      quoted += static_cast<char>(character);
    } else if (IsControl(character) && character < 0x100) {
      quoted += EscapeCode(character);
    } else {
      AppendUtf8(quoted, character);
    }
  }
  return quoted + '"';
}

std::string ToUtf8(std::wstring_view text) {
  std::string bytes;
  for (std::size_t i = 0; i < text.size(); ++i) {
    auto code = static_cast<char32_t>(text[i]);
    if (i + 1 < text.size() && IsHighSurrogate(code) && IsLowSurrogate(static_cast<char32_t>(text[i + 1]))) {
      code = 0x10000 + ((code - 0xD800) << 10U) + (static_cast<char32_t>(text[++i]) - 0xDC00);
    }
    AppendUtf8(bytes, IsScalarValue(code) ? code : kReplacement);
  }
  return bytes;
}

}  // namespace nuveqcam
