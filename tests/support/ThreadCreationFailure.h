// Failure of thread creation.
#pragma once

#include <memory>

namespace support {

// While an instance exists, starting a std::thread in this process fails.
class ThreadCreationFailure {
 public:
  ThreadCreationFailure();
  ThreadCreationFailure(const ThreadCreationFailure&) = delete;
  ThreadCreationFailure& operator=(const ThreadCreationFailure&) = delete;
  ~ThreadCreationFailure();

 private:
  struct SavedState;
  std::unique_ptr<SavedState> m_savedState;
};

}  // namespace support

using support::ThreadCreationFailure;
