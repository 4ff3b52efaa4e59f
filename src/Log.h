// One log call of the library: a level, the place it names and pieces of text and numbers.
//
// Readers of the logs know each message by its source file name and line, so messages keep theirs when the
// code moves: a call names the line where one is established, and __LINE__ where none is.
#pragma once

#include <string>
#include <type_traits>

#include "Logger.h"

namespace camera_log {

// Marks every message of CameraOperator, whichever of its source files it comes from.
inline constexpr const wchar_t* kTag = L"CameraOperator";

struct Place {
  const char* file;
  int line;
  const char* signature;  // the function's full signature, as the compiler spells it
};

// Numbers go in as decimal digits whatever global locale the host has set.
template <typename Piece>
void Append(log4cplus::tostringstream& text, const Piece& piece) {
  if constexpr (std::is_arithmetic_v<Piece>) {
    text << std::to_wstring(piece);
  } else {
    text << piece;
  }
}

// A message that cannot be written (no memory, a logger that throws) is lost: no sequence breaks off for it.
template <typename... Pieces>
void Write(log4cplus::LogLevel level, const Place& place, const Pieces&... pieces) noexcept {
  try {
    const log4cplus::Logger logger = GetLogger();
    if (!logger.isEnabledFor(level)) {
      return;
    }
    log4cplus::tostringstream& text = log4cplus::detail::get_macro_body_oss();
    (Append(text, pieces), ...);
    logger.forcedLog(level, text.str(), place.file, place.line, place.signature);
  } catch (...) {
    return;
  }
}

}  // namespace camera_log

// A message made of the pieces given, which end with the function's name in parentheses.
#define CAMERA_LOG(level, file, line, ...) \
  camera_log::Write(log4cplus::level, camera_log::Place{file, line, LOG4CPLUS_MACRO_FUNCTION()}, __VA_ARGS__)

// A message from inside a member of CameraOperator: the pieces between the tag and the member's name.
#define OPERATOR_LOG(level, line, ...)                                                                       \
  CAMERA_LOG(level, "CameraOperator", line, L"[", camera_log::kTag, L"]", __VA_ARGS__, L"(CameraOperator::", \
             __func__, L")")
