// A run of the library by a host that records what happens in each step.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <semaphore>
#include <string>
#include <thread>
#include <vector>

#include "NUVEQCameraHandler.h"
#include "support/LoadedLibrary.h"
#include "support/Persistence.h"
#include "support/scripted/ScriptedPlatform.h"

namespace fault {

enum class Subject { kCalls, kThreadStarts };

// The calls that fail: their number, counted from 1 over the calls of the subject that can return the answer.
struct Plan {
  Subject subject = Subject::kCalls;
  std::uint64_t number = 0;  // 0: none
  support::Persistence persistence = support::Persistence::kTransient;
  scripted::Answer answer;
};

// A platform call, or an event that the host sees: a log line, a callback or an output.
struct Entry {
  std::string text;  // of a log line: the message without tag and function
  bool isCall = false;
  bool fails = false;  // an injected failure
};

// A call of the library by the host, or a frame of the camera.
struct Step {
  std::string name;
  int result = 0;  // of a frame: the number of packets
  std::vector<Entry> entries;
  // Labels of the live objects, sorted, except packets, which the encoder thread destroys asynchronously.
  std::vector<std::string> aliveBefore;
  std::vector<std::string> alive;
  std::uint64_t failedAllocations = 0;
};

// Returns the operation's name in a call of the journal.
inline std::string OperationIn(const std::string& call) { return call.substr(0, call.find('(')); }

class HostRun {
 public:
  // Resets the platform. failedAllocations returns the number of injected allocation failures.
  explicit HostRun(std::function<std::uint64_t()> failedAllocations = [] { return 0U; });
  HostRun(const HostRun&) = delete;
  HostRun& operator=(const HostRun&) = delete;
  ~HostRun();

  void BeginToFail(const Plan& plan) { m_plan = plan; }
  void FailNothing() { m_plan = {}; }
  bool HasFailed() const { return m_hasFailed; }

  // --- Actions of the host ---

  void LoadLibrary();
  // The first call of the library: constructs its operator.
  void RegisterCallbacks();
  void Query();
  // Releases the records of the last query, if there are any.
  void Release();
  void Open();
  // Right after an open: delivers six frames, so that every buffer of the pool is used, or fewer if one has
  // to wait for a buffer.
  void DeliverFrames() { Deliver(6); }
  void DeliverManyFrames() { Deliver(200); }
  void Close();
  void Unload();
  // Recovers as the header requires, knowing only the results. Ends with an open, a frame, a close and an
  // unload.
  void Recover();

  const std::vector<Step>& Steps() const { return m_steps; }

 private:
  void RecordStep(const std::string& name, const std::function<int()>& action);
  // Counts a call of the operation. If it has to fail, marks it as failing and returns the planned answer.
  std::optional<scripted::Answer> Decide(const std::string& operation);
  void Deliver(unsigned frames);
  // Loads the library and finds the camera, as far as necessary.
  void PrepareOpen();

  scripted::Platform& m_platform = scripted::Platform::Get();
  Plan m_plan;
  std::uint64_t m_count = 0;  // calls that the plan counts
  bool m_hasFailed = false;
  std::function<std::uint64_t()> m_failedAllocations;
  std::vector<Step> m_steps;
  std::unique_ptr<support::LoadedLibrary> m_library;
  NUVEQCameraHandler m_handler{};
  NUVEQCameraCapabilities* m_records = nullptr;
  std::uint32_t m_recordCount = 0;
  // The last query has succeeded.
  bool m_knowsCamera = false;
  // An open has returned something else than NUVEQ_CAMERA_ENCODER_FAILED.
  bool m_hasToClose = false;
  // Released when the encoder thread has finished a frame.
  std::counting_semaphore<> m_encodedFrames{0};
  std::jthread m_waitingFrame;
};

}  // namespace fault
