#include "recording/Libav.h"

#include <array>

#include "cli/Failure.h"

extern "C" {
#include <libavutil/error.h>
}

std::string LibavText(int error) {
  std::array<char, AV_ERROR_MAX_STRING_SIZE> text{};
  av_strerror(error, text.data(), text.size());
  return text.data();
}

void RequireLibav(int result, const char* what) {
  if (result < 0) {
    throw Failure(ExitCode::kUnexpected, std::string("cannot ") + what + ": " + LibavText(result) +
                                             "; record to an .h264 file instead, or report this");
  }
}
