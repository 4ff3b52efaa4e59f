// Text for people and for programs.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

// Numbers with that many decimals, with a point whatever the locale.
std::string Decimal(double number, int decimals);

// How many characters UTF-8 text shows.
std::size_t CodePointCount(std::string_view text);
// Left- or right-aligned in that many columns; longer text stays as it is.
std::string PadRight(std::string text, std::size_t columns);
std::string PadLeft(std::string text, std::size_t columns);

// Text that came from outside (arguments, names of devices), safe to show: control characters, which could
// steer a terminal, and those that turn the direction of what follows become '?'.
std::string SanitizeForTerminal(std::string_view text);

// The text as a JSON string with its quotes. What is not valid UTF-8 becomes U+FFFD.
std::string JsonString(std::string_view text);

// UTF-16 or UTF-32 as UTF-8, without a locale. What is no character becomes U+FFFD.
std::string Utf8(std::wstring_view text);
