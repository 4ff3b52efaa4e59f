// Selects the call of a run that fails. The scripted platform and the reference model use one instance each,
// so that both get the same failures as long as they make the same calls.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "support/Persistence.h"
#include "support/scripted/ScriptedPlatform.h"

namespace fault {

// Name of thread starts among the operations.
inline const std::string kThreadStart = "std::thread";

enum class Subject { kCalls, kThreadStarts };

// The failing call: its number, counted from 1 over the calls that can return the answer.
struct Plan {
  Subject subject = Subject::kCalls;
  std::uint64_t number = 0;  // 0: none
  support::Persistence persistence = support::Persistence::kTransient;
  scripted::Answer answer;
};

// Thread-safe.
class Faults {
 public:
  // Starts counting and failing.
  void Begin(const Plan& plan);
  // Stops failing.
  void End();
  // Counts a call of the operation. Returns the planned answer if this call fails.
  std::optional<scripted::Answer> At(const std::string& operation);
  bool HaveHappened() const;

  // Number of calls of the operation so far.
  std::uint64_t Calls(const std::string& operation) const;
  // Waits until count calls have been made. False after a timeout.
  bool WaitForCalls(const std::string& operation, std::uint64_t count);

 private:
  mutable std::mutex m_mutex;
  std::condition_variable m_changed;
  Plan m_plan;
  std::uint64_t m_count = 0;
  bool m_haveHappened = false;
  std::map<std::string, std::uint64_t> m_calls;
};

}  // namespace fault
