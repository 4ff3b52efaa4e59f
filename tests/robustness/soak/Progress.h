// Prints the progress in steps of 5 %, and ends the process by SIGALRM if there is none for two minutes.
#pragma once

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>

namespace soak {

class Progress {
 public:
  // unit: "frames" or "rounds"; not copied.
  Progress(const char* unit, std::uint64_t total) : m_unit(unit), m_total(total) { SetDone(0); }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress() { alarm(0); }

  // Callable from any thread.
  void SetDone(std::uint64_t done) const {
    constexpr unsigned kTimeoutSeconds = 120;  // far above the duration of any call or frame
    alarm(kTimeoutSeconds);
    if (done % std::max<std::uint64_t>(m_total / 20, 1) == 0) {
      std::printf("%llu of %llu %s\n", static_cast<unsigned long long>(done),
                  static_cast<unsigned long long>(m_total), m_unit);
      std::fflush(stdout);
    }
  }

 private:
  const char* m_unit;
  std::uint64_t m_total;
};

}  // namespace soak
