#include "view/RandomBytes.h"

#include <windows.h>

#include <bcrypt.h>

#include "cli/Failure.h"

namespace nuveqcam {

void FillWithRandom(std::span<std::uint8_t> bytes) {
  const NTSTATUS status = BCryptGenRandom(nullptr, bytes.data(), static_cast<ULONG>(bytes.size()),
                                          BCRYPT_USE_SYSTEM_PREFERRED_RNG);
  if (status < 0) {
    throw Failure(ExitCode::kUnexpected, "the system provides no random numbers; restart Windows");
  }
}

}  // namespace nuveqcam
