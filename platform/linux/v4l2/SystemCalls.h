// The system calls that reach a video device, and where the trees of devices begin. Tests put a kernel of
// their own in their place.
#pragma once

#include <filesystem>

#include "devices/DeviceProvider.h"

#include <poll.h>
#include <sys/types.h>

class NUVEQ_PLATFORM_EXPORT System {
 public:
  System() = default;
  System(const System&) = delete;
  System& operator=(const System&) = delete;
  virtual ~System() = default;

  // As the calls of the same names: -1 (MAP_FAILED) and errno on failure. poll's entries may hold, besides
  // descriptors of Open, real ones of the caller's.
  virtual int Open(const char* path, int flags);
  virtual int Close(int descriptor);
  virtual int Ioctl(int descriptor, unsigned long request, void* argument);
  virtual void* Map(std::size_t size, int descriptor, off_t offset);
  virtual int Unmap(void* address, std::size_t size);
  virtual int Poll(pollfd* entries, nfds_t count, int timeoutMs);

  // "/sys" and "/dev" on the machine itself.
  virtual std::filesystem::path SysfsRoot() const;
  virtual std::filesystem::path DevRoot() const;
};

// The system from here on; null means the machine's own. The caller keeps it alive until it is replaced and
// every camera that was made under it is gone.
NUVEQ_PLATFORM_EXPORT void UseSystem(System* system);
System& CurrentSystem();
