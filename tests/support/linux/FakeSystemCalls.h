// A kernel that the platform runs on in tests: a tree of devices, video devices that behave, and system
// calls that fail on demand.
#pragma once

#include <atomic>

#include "support/Persistence.h"
#include "support/linux/FakeV4l2Device.h"
#include "support/linux/SysfsTree.h"
#include "v4l2/SystemCalls.h"

// Calls that are no ioctl, where calls are named by their request.
inline constexpr unsigned long kOpenCall = 1;
inline constexpr unsigned long kMapCall = 2;
inline constexpr unsigned long kPollCall = 3;

// From any thread. Lives longer than every camera that was made under it.
class FakeSystemCalls : public v4l2::SystemCalls {
 public:
  FakeSystemCalls() = default;

  SysfsTree& Tree() { return m_tree; }
  // What stands behind a video node; the tree has the node.
  FakeV4l2Device& AddDevice(int number, VideoDeviceSettings settings = {});
  // The USB device goes with all that hangs on it, while it is in use as well.
  void Unplug(const std::string& usbName, const std::vector<int>& videoNumbers);

  // The call of that number, counted from 1 and from now, fails; or it and every later one. Closing and
  // unmapping are not counted: they do not fail.
  void FailCall(std::uint64_t number, int error, Persistence persistence);
  // The next call of one kind fails, or every one from now on.
  void Fail(unsigned long call, int error, Persistence persistence = Persistence::kPersistent);
  void FailNothing();
  std::uint64_t Calls() const;
  std::uint64_t Failures() const;
  // Waits that have an end are over at once.
  void LetTimeRunOut(bool runsOut) { m_timeRunsOut = runsOut; }
  // From the first failure on.
  void LetTimeRunOutOnFailure() { m_timeRunsOutOnFailure = true; }
  // The calls of one kind so far, failed ones as well.
  std::uint64_t CallsOf(unsigned long call) const;
  // Flags of the latest open.
  int OpenFlags() const { return m_openFlags; }

  std::vector<std::string> Misuse() const { return m_misuse.All(); }
  std::size_t OpenHandles() const;
  std::size_t Mappings() const;

  // --- SystemCalls ---

  int Open(const char* path, int flags) override;
  int Close(int descriptor) override;
  int Ioctl(int descriptor, unsigned long request, void* argument) override;
  void* Map(std::size_t size, int descriptor, off_t offset) override;
  int Unmap(void* address, std::size_t size) override;
  int Poll(pollfd* entries, nfds_t count, int timeoutMs) override;
  std::filesystem::path SysfsRoot() const override { return m_tree.SysfsRoot(); }
  std::filesystem::path DevRoot() const override { return m_tree.DevRoot(); }

 private:
  struct PlannedFailure {
    std::uint64_t number = 0;  // of the call; 0: none
    int error = 0;
    Persistence persistence = Persistence::kTransient;
  };

  // Counts a call; the error number that it is to fail with, or 0.
  int Count(unsigned long call);
  FakeV4l2Device* DeviceOf(int descriptor) const;
  std::vector<FakeV4l2Device*> AllDevices() const;
  // Fills in what the devices report and answers how many report anything.
  int LookAtDevices(pollfd* entries, nfds_t count) const;

  SysfsTree m_tree;
  MisuseList m_misuse;
  mutable std::mutex m_mutex;
  std::map<std::string, FakeV4l2Device*> m_nodes;  // by name: "video0"
  std::vector<std::unique_ptr<FakeV4l2Device>> m_devices;
  std::map<int, FakeV4l2Device*> m_handles;
  std::map<unsigned long, std::uint64_t> m_callsOf;
  std::uint64_t m_calls = 0;
  std::uint64_t m_failures = 0;
  PlannedFailure m_plannedCall;
  std::map<unsigned long, PlannedFailure> m_plannedKinds;
  std::atomic<bool> m_timeRunsOut = false;
  std::atomic<bool> m_timeRunsOutOnFailure = false;
  std::atomic<int> m_openFlags = 0;
};
