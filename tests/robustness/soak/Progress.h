// Shows now and then how far the soak is, and ends a process that stands still.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>

class Progress {
 public:
  Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress();

  // What is counted from 0 from here on: "frames", "rounds"; a text that stays.
  void Begin(const char* units, std::uint64_t total);
  // From any thread.
  void SetDone(std::uint64_t done) { m_done = done; }

 private:
  void Watch();
  void Show(std::uint64_t before, double seconds) const;

  std::atomic<const char*> m_units = "";
  std::atomic<std::uint64_t> m_total = 0;
  std::atomic<std::uint64_t> m_done = 0;
  std::mutex m_mutex;
  std::condition_variable m_changed;
  bool m_isOver = false;
  std::thread m_thread;
};
