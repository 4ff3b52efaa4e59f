// Formatting of human-readable text.
#pragma once

#include <cstddef>
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

// Converts UTF-16 or UTF-32 to UTF-8, independent of the locale. Invalid code units become U+FFFD.
std::string ToUtf8(std::wstring_view text);

}  // namespace nuveqcam
