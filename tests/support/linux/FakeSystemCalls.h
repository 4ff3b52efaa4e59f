// A fake kernel under the platform: a sysfs tree, V4L2 devices, and system calls that fail on demand.
#pragma once

#include <atomic>

#include "support/Persistence.h"
#include "support/linux/FakeV4l2Device.h"
#include "support/linux/SysfsTree.h"
#include "v4l2/SystemCalls.h"

namespace linux_support {

// Identifiers of the calls other than ioctl; an ioctl is identified by its request.
inline constexpr unsigned long kOpenCall = 1;
inline constexpr unsigned long kMapCall = 2;
inline constexpr unsigned long kPollCall = 3;

// Thread-safe. Must outlive every camera that uses it.
class FakeSystemCalls : public v4l2::SystemCalls {
 public:
  FakeSystemCalls() = default;

  SysfsTree& Tree() { return m_tree; }
  // Adds the device behind a video node. The node itself is added to the tree.
  FakeV4l2Device& AddDevice(int number, VideoDeviceSettings settings = {});
  // Removes a USB device and everything below it, also while it is in use.
  void Unplug(const std::string& usbName, const std::vector<int>& videoNumbers);

  // Makes the N-th call from now fail, N from 1; if persistent, all later calls too. Close and munmap never
  // fail and are not counted.
  void FailCall(std::uint64_t number, int error, Persistence persistence);
  // Makes the next call of one kind fail; if persistent, all calls of that kind.
  void Fail(unsigned long call, int error, Persistence persistence = Persistence::kPersistent);
  void FailNothing();
  // Replaces the drivers' answer to an ioctl. The function returns an error number or 0.
  void AnswerIoctl(unsigned long request, std::function<int(void* argument)> answer);
  std::uint64_t Calls() const;
  std::uint64_t Failures() const;
  // If set, finite poll timeouts expire at once.
  void ExpireTimeouts(bool expires) { m_expiresTimeouts = expires; }
  // The same from the first failure on.
  void ExpireTimeoutsOnFailure() { m_expiresTimeoutsOnFailure = true; }
  // The number of calls of one kind so far, including failed ones.
  std::uint64_t CallsOf(unsigned long call) const;
  // The flags of the latest open.
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
    std::uint64_t number = 0;  // of the call; 0: no failure
    int error = 0;
    Persistence persistence = Persistence::kTransient;
  };

  // Counts a call. Returns the error number with which it must fail, or 0.
  int Count(unsigned long call);
  // Empty: the driver answers.
  std::function<int(void*)> AnswerTo(unsigned long request) const;
  FakeV4l2Device* DeviceOf(int descriptor) const;
  std::vector<FakeV4l2Device*> AllDevices() const;
  // Sets revents of the devices' entries. Returns how many are not 0.
  int PollDevices(pollfd* entries, nfds_t count) const;

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
  std::map<unsigned long, std::function<int(void*)>> m_answers;
  std::atomic<bool> m_expiresTimeouts = false;
  std::atomic<bool> m_expiresTimeoutsOnFailure = false;
  std::atomic<int> m_openFlags = 0;
};

}  // namespace linux_support
