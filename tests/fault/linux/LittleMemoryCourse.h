// The course that a run takes with the library while its allocations fail.
#pragma once

#include "FailingAllocations.h"
#include "PlayedCourse.h"

inline constexpr int kNotCalled = 1000;

class LittleMemoryCourse final : public PlayedCourse {
 public:
  // Of the library's alone: neither its logger's nor its platform's.
  explicit LittleMemoryCourse(Faults& faults);

  // From now on; while the library is not loaded, from its first function on.
  void BeginToFail(std::uint64_t number, Persistence persistence);
  void FailNothing();
  bool HasFailed() const { return m_allocations.HasFailed(); }

  void Load() override;
  // Frames that nothing has failed for are waited for.
  void DeliverFrames(unsigned count) override;
  // Each of the pool's buffers takes part: so many frames find room while the encoder thread is held.
  void ExpectWholePool() const;

  // The camera delivers to this library, and the open has succeeded.
  bool IsCameraOpen() const;
  // What a host does that does not know what happened. Ends with an open that has to work, a frame, a close
  // and an unload.
  void RecoverFromAnything();

  unsigned DeliveredFrames() const { return m_deliveredFrames; }
  // Of the latest call of the table's function: kNotCalled when there was none.
  int LatestResult(const std::string& function) const;

 private:
  // Returns when the encoder thread has nothing to do.
  void WaitForRest() const;

  FailingAllocations m_allocations;
  Faults& m_faults;
  std::uint64_t m_number = 0;
  Persistence m_persistence = Persistence::kOnce;
  bool m_isRegistered = false;
  unsigned m_deliveredFrames = 0;
};
