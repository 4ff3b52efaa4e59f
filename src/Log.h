// Logging of the library: a level, a source location, and pieces of text and numbers.
//
// Readers of the logs identify a message by its file name and line number. A message with an established line
// number keeps it when the code moves; the others use __LINE__.
#pragma once

#include <string>
#include <type_traits>

#include "Logger.h"

namespace camera_log {

// Tag of all messages of CameraOperator, from any of its source files.
inline constexpr const wchar_t* kTag = L"CameraOperator";

struct Place {
  const char* file;
  int line;
  const char* signature;  // the function's full signature as the compiler formats it
};

// Formats numbers independently of the host's global locale.
template <typename Piece>
void Append(log4cplus::tostringstream& text, const Piece& piece) {
  if constexpr (std::is_arithmetic_v<Piece>) {
    text << std::to_wstring(piece);
  } else {
    text << piece;
  }
}

// Discards the message if it cannot be written (no memory, an exception in the logger): logging never
// interrupts an operation.
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

// Logs the given pieces. The last ones are the function's name in parentheses.
#define CAMERA_LOG(level, file, line, ...) \
  camera_log::Write(log4cplus::level, camera_log::Place{file, line, LOG4CPLUS_MACRO_FUNCTION()}, __VA_ARGS__)

// Logs from a member function of CameraOperator: adds the tag before the pieces and the function's name
// after.
#define OPERATOR_LOG(level, line, ...)                                                                       \
  CAMERA_LOG(level, "CameraOperator", line, L"[", camera_log::kTag, L"]", __VA_ARGS__, L"(CameraOperator::", \
             __func__, L")")
