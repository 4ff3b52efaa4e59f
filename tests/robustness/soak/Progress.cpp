#include "Progress.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "Footprint.h"

namespace soak {
namespace {

using Clock = std::chrono::steady_clock;

// Far above the duration of any call or frame.
constexpr std::chrono::minutes kTimeout{2};

double SecondsSince(Clock::time_point then) {
  return std::chrono::duration<double>(Clock::now() - then).count();
}

}  // namespace

Progress::Progress() : m_thread([this] { Run(); }) {}

Progress::~Progress() {
  {
    const std::lock_guard lock(m_mutex);
    m_isStopping = true;
  }
  m_changed.notify_all();
  m_thread.join();
}

void Progress::Begin(const char* units, std::uint64_t total) {
  m_units = units;
  m_total = total;
  m_done = 0;
}

void Progress::Run() {
  // Every second on a terminal, less often in logs.
  const std::chrono::seconds interval(isatty(STDOUT_FILENO) != 0 ? 1 : 10);
  std::uint64_t before = 0;
  auto printed = Clock::now();
  auto advanced = printed;
  std::unique_lock lock(m_mutex);
  while (!m_changed.wait_for(lock, interval, [&] { return m_isStopping; })) {
    if (m_done != before) {
      advanced = Clock::now();
    } else if (Clock::now() - advanced > kTimeout) {
      std::fprintf(stderr, "soak: FAILED: no progress for two minutes after %llu %s\n",
                   static_cast<unsigned long long>(before), m_units.load());
      std::_Exit(EXIT_FAILURE);
    }
    Print(before, SecondsSince(printed));
    before = m_done;
    printed = Clock::now();
  }
}

void Progress::Print(std::uint64_t before, double seconds) const {
  const std::uint64_t done = m_done;
  const double rate = done < before ? 0 : static_cast<double>(done - before) / seconds;
  std::printf("%llu of %llu %s, %.0f per second, %zu KiB resident\n", static_cast<unsigned long long>(done),
              static_cast<unsigned long long>(m_total.load()), m_units.load(), rate, ResidentBytes() / 1024);
  std::fflush(stdout);
}

}  // namespace soak
