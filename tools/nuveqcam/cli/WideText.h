// Windows: UTF-16 text and error messages.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace nuveqcam {

// The maximum length of a path, in characters.
inline constexpr std::size_t kMaxPathLength = 32768;

// Converts UTF-8 to UTF-16. Invalid UTF-8 becomes U+FFFD.
std::wstring ToWide(std::string_view text);

// The message of a Windows error code in the user's language, in UTF-8 and without a final period.
std::string SystemMessage(unsigned long code);
// The same for an HRESULT.
std::string ComMessage(long result);

}  // namespace nuveqcam
