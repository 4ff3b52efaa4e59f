// A system that refuses every new thread.
#pragma once

#include <memory>

// While it lives no std::thread can be started in this process.
class NoThreads {
 public:
  NoThreads();
  NoThreads(const NoThreads&) = delete;
  NoThreads& operator=(const NoThreads&) = delete;
  ~NoThreads();

 private:
  struct Before;
  std::unique_ptr<Before> m_before;
};
