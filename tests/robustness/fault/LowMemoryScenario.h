// The course that a run takes with the library while its allocations fail.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "RecordedRun.h"
#include "support/FailingAllocations.h"

inline constexpr int kNotCalled = 1000;

// A function's answer, and what was alive before and after the call. Packets, which come and go, left out.
struct Step {
  std::string function;
  int result;
  std::vector<std::string> before;
  std::vector<std::string> after;
  bool hasOperator;  // the library has made what its functions work with
};

class LowMemoryRun final : public RecordedRun {
 public:
  // Of the library's alone: neither its logger's nor its platform's.
  explicit LowMemoryRun(Faults& faults);

  // From now on; while the library is not loaded, from its first function on.
  void BeginToFail(std::uint64_t number, Persistence persistence);
  void FailNothing();
  bool HasFailed() const { return m_allocations.HasFailed(); }

  void Load() override;
  void Query() override;
  void Open() override;
  void Close() override;
  // Frames that nothing has failed for are waited for.
  void DeliverFrames(unsigned count) override;
  // Each of the pool's buffers takes part: so many frames find room while the encoder thread is held.
  void ExpectWholePool() const;

  // The camera delivers to this library, and the open has succeeded.
  bool IsCameraOpen() const;
  // What a host does that knows what the functions answered, and no more: it closes where an answer asks for
  // that, and not elsewhere. Ends with an open that has to work, a frame, a close and an unload.
  void Recover();

  unsigned DeliveredFrames() const { return m_deliveredFrames; }
  // Of the latest call of the table's function: kNotCalled when there was none.
  int LatestResult(const std::string& function) const;
  // Queries, opens and closes so far.
  const std::vector<Step>& Steps() const { return m_steps; }

 private:
  // Returns when the encoder thread has nothing to do.
  void WaitForRest() const;
  void TakeStep(const std::string& function, const std::function<void()>& call);
  // By the answers since the latest close.
  bool HasToClose() const;

  FailingAllocations m_allocations;
  Faults& m_faults;
  std::uint64_t m_number = 0;
  Persistence m_persistence = Persistence::kTransient;
  bool m_isRegistered = false;
  std::vector<Step> m_steps;
  unsigned m_deliveredFrames = 0;
};
