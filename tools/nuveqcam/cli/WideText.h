// Text as the system wants it and has it.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// The longest path that the system has, in characters.
inline constexpr std::size_t kLongestPath = 32768;

// UTF-8 as UTF-16. What is not valid becomes U+FFFD.
std::wstring Wide(std::string_view text);

// What the system's error code means, in its own words and the user's language, in UTF-8.
std::string SystemMessage(unsigned long code);
// The same for a result of COM's.
std::string ComMessage(long result);
