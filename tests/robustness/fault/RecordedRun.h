// A run of the library that records platform calls, log lines, callbacks and results.
#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "FaultInjection.h"
#include "ReferenceModel.h"
#include "Run.h"
#include "support/HostCallbacks.h"
#include "support/LoadedLibrary.h"

namespace fault {

// Returns a frame that fits into a buffer of any layout.
std::vector<std::uint8_t> SmallFrame();

class RecordedRun : public Run {
 public:
  // Resets the platform. The fates of the frames come from the model, since the library does not report a
  // lost frame.
  RecordedRun(Faults& faults, const std::vector<FrameFate>& fates);
  // Ends the fault injection.
  ~RecordedRun() override;

  void Load() override;
  void Query() override;
  void Release() override;
  void Open() override;
  void DeliverFrames(unsigned count) override;
  void Close() override;
  void Unload() override;

  // In the format of ReferenceModel::Trace.
  std::vector<std::string> Trace() const;

 protected:
  void LoadLibraryOnly();
  bool IsLoaded() const { return m_library != nullptr && m_library->IsMapped(); }
  // Returns the first failure; 0 on success.
  int RegisterCallbacks() const;

 private:
  void Deliver(FrameFate fate);
  // Adds a function's result to the journal.
  void NoteResult(const std::string& function, int result);
  void JoinWaitingFrame();

  scripted::Platform& m_platform = scripted::Platform::Get();
  Faults& m_faults;
  std::deque<FrameFate> m_fates;
  std::unique_ptr<support::LoadedLibrary> m_library;
  NUVEQCameraHandler m_handler{};
  NUVEQCameraCapabilities* m_records = nullptr;
  std::uint32_t m_recordCount = 0;
  std::thread m_waitingFrame;
};

}  // namespace fault
