// A run of the library with failing allocations.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "RecordedRun.h"
#include "support/FailingAllocations.h"

namespace fault {

inline constexpr int kNotCalled = 1000;

// A function's result, and the live objects before and after the call, except packets.
struct Step {
  std::string function;
  int result;
  std::vector<std::string> before;
  std::vector<std::string> after;
  bool hasOperator;  // the library has constructed its operator
};

class LowMemoryRun final : public RecordedRun {
 public:
  // Only allocations of the library fail, not those of its logger or platform.
  explicit LowMemoryRun(Faults& faults);

  // Starts now, or with the first call of the library if it is not loaded.
  void BeginToFail(std::uint64_t number, support::Persistence persistence);
  void FailNothing();
  bool HasFailed() const { return m_allocations.HasFailed(); }

  void Load() override;
  void Query() override;
  void Open() override;
  void Close() override;
  // Waits for frames that no failure affects.
  void DeliverFrames(unsigned count) override;
  // Expects that no buffer is lost: blocks the encoder thread and fills the pool.
  void ExpectWholePool() const;

  // True if the last open has succeeded and the camera delivers frames.
  bool IsCameraOpen() const;
  // Recovers as a host does that knows only the results: closes if a result requires it. Ends with an open
  // that must succeed, a frame, a close and an unload.
  void Recover();

  unsigned DeliveredFrames() const { return m_deliveredFrames; }
  // Result of the last call of the function; kNotCalled if there was none.
  int LatestResult(const std::string& function) const;
  // The queries, opens and closes so far.
  const std::vector<Step>& Steps() const { return m_steps; }

 private:
  // Waits until the encoder thread is idle.
  void WaitUntilIdle() const;
  void RecordStep(const std::string& function, const std::function<void()>& call);
  // Decides from the results since the last close.
  bool HasToClose() const;

  support::FailingAllocations m_allocations;
  Faults& m_faults;
  std::uint64_t m_number = 0;
  support::Persistence m_persistence = support::Persistence::kTransient;
  bool m_isRegistered = false;
  std::vector<Step> m_steps;
  unsigned m_deliveredFrames = 0;
};

}  // namespace fault
