// Which call of a run fails, and how. The platform and the expected course each ask one of their own, and
// meet the same failures as long as they make the same calls.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "support/Persistence.h"
#include "support/scripted/ScriptedPlatform.h"

// Stands for the start of a thread among the operations.
inline const std::string kThreadStart = "std::thread";

enum class Subject { kCalls, kThreadStarts };

// The call of that number fails, counted from 1 over the calls that can answer so; or it and every later one.
struct Plan {
  Subject subject = Subject::kCalls;
  std::uint64_t number = 0;  // 0: none
  Persistence persistence = Persistence::kTransient;
  scripted::Answer answer;
};

// From any thread.
class Faults {
 public:
  // Counts and fails from here on.
  void Begin(const Plan& plan);
  // Nothing fails from here on.
  void End();
  // A call of the operation is made: what it answers, if that is the plan's business.
  std::optional<scripted::Answer> At(const std::string& operation);
  bool HaveHappened() const;

  // Calls of the operation so far, whatever became of them.
  std::uint64_t Calls(const std::string& operation) const;
  // False when there were not that many in time.
  bool WaitForCalls(const std::string& operation, std::uint64_t count);

 private:
  mutable std::mutex m_mutex;
  std::condition_variable m_changed;
  Plan m_plan;
  std::uint64_t m_count = 0;
  bool m_haveHappened = false;
  std::map<std::string, std::uint64_t> m_calls;
};
