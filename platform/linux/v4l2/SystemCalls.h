// The system calls that reach video devices, and the roots of sysfs and /dev. Tests replace them with fakes.
#pragma once

#include <cstddef>
#include <filesystem>

#include <poll.h>
#include <sys/types.h>

#include "Export.h"

namespace v4l2 {

class NUVEQ_PLATFORM_EXPORT SystemCalls {
 public:
  SystemCalls() = default;
  SystemCalls(const SystemCalls&) = delete;
  SystemCalls& operator=(const SystemCalls&) = delete;
  virtual ~SystemCalls() = default;

  // The calls of the same names. They return -1 (MAP_FAILED) and set errno on failure. The entries of Poll
  // may contain real descriptors besides those that Open returned.
  virtual int Open(const char* path, int flags);
  virtual int Close(int descriptor);
  virtual int Ioctl(int descriptor, unsigned long request, void* argument);
  virtual void* Map(std::size_t size, int descriptor, off_t offset);
  virtual int Unmap(void* address, std::size_t size);
  virtual int Poll(pollfd* entries, nfds_t count, int timeoutMs);

  // "/sys" and "/dev" by default.
  virtual std::filesystem::path SysfsRoot() const;
  virtual std::filesystem::path DevRoot() const;
};

// Replaces the system calls; null restores the real ones. The replacement must outlive every camera that was
// created while it was set.
NUVEQ_PLATFORM_EXPORT void SetSystemCallsForTesting(SystemCalls* calls);
SystemCalls& CurrentSystemCalls();

}  // namespace v4l2
