// The course that a run takes with the library itself.
#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "FaultInjection.h"
#include "ReferenceModel.h"
#include "Scenario.h"
#include "support/HostCallbacks.h"
#include "support/LoadedLibrary.h"

// Fits into every buffer of the size that is asked for, whatever its layout.
std::vector<std::uint8_t> SmallFrame();

class RecordedRun : public Run {
 public:
  // Starts from an empty platform. What becomes of each frame has to be known, for nothing announces a frame
  // that is lost.
  RecordedRun(Faults& faults, const std::vector<FrameFate>& fates);
  // The platform asks nobody any more.
  ~RecordedRun() override;

  void Load() override;
  void Query() override;
  void Release() override;
  void Open() override;
  void DeliverFrames(unsigned count) override;
  void Close() override;
  void Unload() override;

  // In the form of the expected course's.
  std::vector<std::string> Trace() const;

 protected:
  void LoadTheLibrary();
  bool IsLoaded() const { return m_library != nullptr && m_library->IsMapped(); }
  // The first failure's code; 0 for success.
  int RegisterCallbacks() const;

 private:
  void Deliver(FrameFate fate);
  // Says in the journal what a function answered.
  void Answered(const std::string& function, int result);
  void LetHeldUpFrameGo();

  scripted::Platform& m_platform = scripted::Platform::Get();
  Faults& m_faults;
  std::deque<FrameFate> m_fates;
  std::unique_ptr<LoadedLibrary> m_library;
  NUVEQCameraHandler m_handler{};
  NUVEQCameraCapabilities* m_records = nullptr;
  std::uint32_t m_recordCount = 0;
  std::thread m_heldUpFrame;
};
