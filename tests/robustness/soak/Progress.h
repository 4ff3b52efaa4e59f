// Prints the progress periodically, and ends the process if there is none for two minutes.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>

namespace soak {

class Progress {
 public:
  Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;
  ~Progress();

  // Starts counting from 0. units: "frames" or "rounds"; not copied.
  void Begin(const char* units, std::uint64_t total);
  // Callable from any thread.
  void SetDone(std::uint64_t done) { m_done = done; }

 private:
  void Run();
  void Print(std::uint64_t before, double seconds) const;

  std::atomic<const char*> m_units = "";
  std::atomic<std::uint64_t> m_total = 0;
  std::atomic<std::uint64_t> m_done = 0;
  std::mutex m_mutex;
  std::condition_variable m_changed;
  bool m_isStopping = false;
  std::thread m_thread;
};

}  // namespace soak
