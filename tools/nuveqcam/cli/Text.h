// Formatting of human-readable text and JSON.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace nuveqcam {

// The number with a fixed count of decimals. The decimal separator is a point in every locale.
std::string Decimal(double number, int decimals);

// The number of code points in UTF-8 text.
std::size_t CodePointCount(std::string_view text);
// Pads text to a number of columns. Longer text is not truncated.
std::string PadRight(std::string text, std::size_t columns);
std::string PadLeft(std::string text, std::size_t columns);

// Makes untrusted text (arguments, device names) safe to print: control characters and bidirectional
// formatting characters become '?', invalid UTF-8 becomes U+FFFD.
std::string SanitizeForTerminal(std::string_view text);

// The text as a quoted JSON string. Invalid UTF-8 becomes U+FFFD.
std::string JsonString(std::string_view text);

inline std::string JsonBool(bool value) { return value ? "true" : "false"; }

// null for an empty text.
inline std::string JsonStringOrNull(const std::string& text) {
  return text.empty() ? "null" : JsonString(text);
}

// A JSON array of the values that write returns for the entries.
template <typename List, typename Write>
std::string JsonArray(const List& list, const Write& write) {
  std::string text;
  for (const auto& entry : list) {
    text += (text.empty() ? "" : ",") + write(entry);
  }
  return "[" + text + "]";
}

// Converts UTF-16 or UTF-32 to UTF-8, independent of the locale. Invalid code units become U+FFFD.
std::string ToUtf8(std::wstring_view text);

}  // namespace nuveqcam
