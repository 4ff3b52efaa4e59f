#include "support/linux/FakeSystemCalls.h"

#include <algorithm>
#include <cerrno>
#include <chrono>

#include <fcntl.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <unistd.h>

namespace linux_support {
namespace {

// The return value of a system call; sets errno on failure.
int ResultOf(int error) {
  if (error == 0) {
    return 0;
  }
  errno = error;
  return -1;
}

}  // namespace

FakeV4l2Device& FakeSystemCalls::AddDevice(int number, VideoDeviceSettings settings) {
  const std::lock_guard lock(m_mutex);
  m_devices.push_back(std::make_unique<FakeV4l2Device>(std::move(settings), m_misuse));
  m_nodes[std::string("video").append(std::to_string(number))] = m_devices.back().get();
  return *m_devices.back();
}

void FakeSystemCalls::Unplug(const std::string& usbName, const std::vector<int>& videoNumbers) {
  m_tree.RemoveUsb(usbName);
  const std::lock_guard lock(m_mutex);
  for (const int number : videoNumbers) {
    const auto node = m_nodes.find(std::string("video").append(std::to_string(number)));
    node->second->Unplug();
    m_nodes.erase(node);
  }
}

void FakeSystemCalls::FailCall(std::uint64_t number, int error, Persistence persistence) {
  const std::lock_guard lock(m_mutex);
  m_plannedCall = {m_calls + number, error, persistence};
}

void FakeSystemCalls::Fail(unsigned long call, int error, Persistence persistence) {
  const std::lock_guard lock(m_mutex);
  m_plannedKinds[call] = {m_callsOf[call] + 1, error, persistence};
}

void FakeSystemCalls::FailNothing() {
  const std::lock_guard lock(m_mutex);
  m_plannedCall = {};
  m_plannedKinds.clear();
}

void FakeSystemCalls::AnswerIoctl(unsigned long request, std::function<int(void* argument)> answer) {
  const std::lock_guard lock(m_mutex);
  m_answers[request] = std::move(answer);
}

std::function<int(void*)> FakeSystemCalls::AnswerTo(unsigned long request) const {
  const std::lock_guard lock(m_mutex);
  const auto answer = m_answers.find(request);
  return answer == m_answers.end() ? nullptr : answer->second;
}

std::uint64_t FakeSystemCalls::Calls() const {
  const std::lock_guard lock(m_mutex);
  return m_calls;
}

std::uint64_t FakeSystemCalls::Failures() const {
  const std::lock_guard lock(m_mutex);
  return m_failures;
}

std::uint64_t FakeSystemCalls::CallsOf(unsigned long call) const {
  const std::lock_guard lock(m_mutex);
  const auto calls = m_callsOf.find(call);
  return calls == m_callsOf.end() ? 0 : calls->second;
}

int FakeSystemCalls::Count(unsigned long call) {
  const std::lock_guard lock(m_mutex);
  ++m_calls;
  const std::uint64_t ofKind = ++m_callsOf[call];
  const auto failure = [](const PlannedFailure& planned, std::uint64_t number) {
    const bool mustRequeue =
        planned.persistence == Persistence::kTransient ? number == planned.number : number >= planned.number;
    return planned.number != 0 && mustRequeue ? planned.error : 0;
  };
  int error = failure(m_plannedCall, m_calls);
  if (const auto planned = m_plannedKinds.find(call); error == 0 && planned != m_plannedKinds.end()) {
    error = failure(planned->second, ofKind);
  }
  if (error != 0) {
    ++m_failures;
    m_expiresTimeouts = m_expiresTimeouts || m_expiresTimeoutsOnFailure;
  }
  return error;
}

std::vector<FakeV4l2Device*> FakeSystemCalls::AllDevices() const {
  const std::lock_guard lock(m_mutex);
  std::vector<FakeV4l2Device*> devices;
  for (const std::unique_ptr<FakeV4l2Device>& device : m_devices) {
    devices.push_back(device.get());
  }
  return devices;
}

std::size_t FakeSystemCalls::OpenHandles() const {
  std::size_t handles = 0;
  for (const FakeV4l2Device* const device : AllDevices()) {
    handles += device->OpenHandles();
  }
  return handles;
}

std::size_t FakeSystemCalls::Mappings() const {
  std::size_t mappings = 0;
  for (const FakeV4l2Device* const device : AllDevices()) {
    mappings += device->Mappings();
  }
  return mappings;
}

FakeV4l2Device* FakeSystemCalls::DeviceOf(int descriptor) const {
  const std::lock_guard lock(m_mutex);
  const auto handle = m_handles.find(descriptor);
  return handle == m_handles.end() ? nullptr : handle->second;
}

int FakeSystemCalls::Open(const char* path, int flags) {
  m_openFlags = flags;
  if (const int error = Count(kOpenCall); error != 0) {
    return ResultOf(error);
  }
  const std::filesystem::path file(path);
  const std::lock_guard lock(m_mutex);
  const auto node = m_nodes.find(file.filename());
  if (node == m_nodes.end() || file.parent_path() != DevRoot()) {
    return ResultOf(ENOENT);
  }
  const int handle = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  m_handles[handle] = node->second;
  node->second->Open(handle, (flags & O_NONBLOCK) != 0);
  return handle;
}

int FakeSystemCalls::Close(int descriptor) {
  FakeV4l2Device* const device = DeviceOf(descriptor);
  if (device == nullptr) {
    m_misuse.Add("close of a descriptor that is not open");
    return ResultOf(EBADF);
  }
  device->Close(descriptor);
  const std::lock_guard lock(m_mutex);
  m_handles.erase(descriptor);
  return close(descriptor);
}

int FakeSystemCalls::Ioctl(int descriptor, unsigned long request, void* argument) {
  FakeV4l2Device* const device = DeviceOf(descriptor);
  if (device == nullptr) {
    m_misuse.Add("ioctl on a descriptor that is not open");
    return ResultOf(EBADF);
  }
  if (const int error = Count(request); error != 0) {
    device->CallFailed(request, argument);
    return ResultOf(error);
  }
  if (const auto answer = AnswerTo(request)) {
    return ResultOf(answer(argument));
  }
  return ResultOf(device->Ioctl(descriptor, request, argument));
}

void* FakeSystemCalls::Map(std::size_t size, int descriptor, off_t offset) {
  FakeV4l2Device* const device = DeviceOf(descriptor);
  if (device == nullptr) {
    m_misuse.Add("mmap of a descriptor that is not open");
  }
  int error = device == nullptr ? EBADF : Count(kMapCall);
  // Signals do not interrupt mmap.
  error = error == EINTR ? 0 : error;
  void* const address = error == 0 ? device->Map(size, offset, error) : nullptr;
  errno = error;
  return address == nullptr ? MAP_FAILED : address;
}

int FakeSystemCalls::Unmap(void* address, std::size_t size) {
  for (FakeV4l2Device* const device : AllDevices()) {
    if (device->Unmap(address, size)) {
      return 0;
    }
  }
  m_misuse.Add("munmap of an address that is not mapped");
  return ResultOf(EINVAL);
}

int FakeSystemCalls::PollDevices(pollfd* entries, nfds_t count) const {
  int ready = 0;
  for (nfds_t i = 0; i < count; ++i) {
    entries[i].revents = 0;
    if (FakeV4l2Device* const device = DeviceOf(entries[i].fd); device != nullptr) {
      const auto always = static_cast<short>(POLLERR | POLLHUP);
      const auto requested = static_cast<short>(entries[i].events | always);
      entries[i].revents = static_cast<short>(device->Events(entries[i].fd) & requested);
      ready += entries[i].revents != 0 ? 1 : 0;
    }
  }
  return ready;
}

// Handles are eventfds that the devices signal on every change, so that one real poll can wait for devices
// and for the caller's own descriptors.
int FakeSystemCalls::Poll(pollfd* entries, nfds_t count, int timeoutMs) {
  if (const int error = Count(kPollCall); error != 0) {
    return ResultOf(error);
  }
  using Clock = std::chrono::steady_clock;
  const Clock::time_point end = Clock::now() + std::chrono::milliseconds(timeoutMs);
  for (;;) {
    int ready = PollDevices(entries, count);
    int wait = timeoutMs;
    if (ready > 0 || (timeoutMs > 0 && m_expiresTimeouts)) {
      wait = 0;
    } else if (timeoutMs > 0) {
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
      wait = static_cast<int>(std::max(left, decltype(left){0}));
    }
    std::vector<pollfd> real(entries, entries + count);
    for (nfds_t i = 0; i < count; ++i) {
      if (DeviceOf(real[i].fd) != nullptr) {
        real[i].events = POLLIN;
      }
    }
    const int woken = poll(real.data(), count, wait);
    for (nfds_t i = 0; i < count; ++i) {
      if (DeviceOf(entries[i].fd) == nullptr && real[i].revents != 0) {
        entries[i].revents = real[i].revents;
        ++ready;
      }
      if ((real[i].revents & POLLNVAL) != 0) {
        m_misuse.Add("poll of a descriptor that is not open");
      }
    }
    if (ready > 0 || (woken == 0 && timeoutMs >= 0) || woken < 0) {
      return woken < 0 ? woken : ready;
    }
  }
}

}  // namespace linux_support
