#include "Progress.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "Footprint.h"

namespace {

using Clock = std::chrono::steady_clock;

// No call of the library's, and no frame, takes that long on any machine.
constexpr std::chrono::minutes kStandstill{2};

double SecondsSince(Clock::time_point then) {
  return std::chrono::duration<double>(Clock::now() - then).count();
}

}  // namespace

Progress::Progress() : m_thread([this] { Watch(); }) {}

Progress::~Progress() {
  {
    const std::lock_guard lock(m_mutex);
    m_isOver = true;
  }
  m_changed.notify_all();
  m_thread.join();
}

void Progress::Begin(const char* units, std::uint64_t total) {
  m_units = units;
  m_total = total;
  m_done = 0;
}

void Progress::Watch() {
  // People watch every second; in logs that would be a lot.
  const std::chrono::seconds interval(isatty(STDOUT_FILENO) != 0 ? 1 : 10);
  std::uint64_t before = 0;
  auto shown = Clock::now();
  auto moved = shown;
  std::unique_lock lock(m_mutex);
  while (!m_changed.wait_for(lock, interval, [&] { return m_isOver; })) {
    if (m_done != before) {
      moved = Clock::now();
    } else if (Clock::now() - moved > kStandstill) {
      std::fprintf(stderr, "soak: FAILED: nothing has moved for two minutes, after %llu %s\n",
                   static_cast<unsigned long long>(before), m_units.load());
      std::_Exit(EXIT_FAILURE);
    }
    Show(before, SecondsSince(shown));
    before = m_done;
    shown = Clock::now();
  }
}

void Progress::Show(std::uint64_t before, double seconds) const {
  const std::uint64_t done = m_done;
  const double rate = done < before ? 0 : static_cast<double>(done - before) / seconds;
  std::printf("%llu of %llu %s, %.0f a second, %zu KiB resident\n", static_cast<unsigned long long>(done),
              static_cast<unsigned long long>(m_total.load()), m_units.load(), rate, ResidentBytes() / 1024);
  std::fflush(stdout);
}
