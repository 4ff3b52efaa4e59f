#include "v4l2/SystemCalls.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <memory>

namespace v4l2 {

namespace {

std::atomic<SystemCalls*>& Replacement() {
  static std::atomic<SystemCalls*> replacement{nullptr};
  return replacement;
}

}  // namespace

// NOLINTBEGIN(cppcoreguidelines-pro-type-vararg, hicpp-vararg): the signatures of open and ioctl
int SystemCalls::Open(const char* path, int flags) { return ::open(path, flags); }
int SystemCalls::Ioctl(int descriptor, unsigned long request, void* argument) {
  return ::ioctl(descriptor, request, argument);
}
// NOLINTEND(cppcoreguidelines-pro-type-vararg, hicpp-vararg)

int SystemCalls::Close(int descriptor) { return ::close(descriptor); }

void* SystemCalls::Map(std::size_t size, int descriptor, off_t offset) {
  return ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, offset);
}

int SystemCalls::Unmap(void* address, std::size_t size) { return ::munmap(address, size); }

int SystemCalls::Poll(pollfd* entries, nfds_t count, int timeoutMs) {
  return ::poll(entries, count, timeoutMs);
}

std::filesystem::path SystemCalls::SysfsRoot() const { return "/sys"; }
std::filesystem::path SystemCalls::DevRoot() const { return "/dev"; }

void SetSystemCallsForTesting(SystemCalls* calls) { Replacement() = calls; }

SystemCalls& CurrentSystemCalls() {
  // Never destroyed: a camera may still be streaming while the process exits.
  static SystemCalls* const own = std::make_unique<SystemCalls>().release();
  SystemCalls* const replacement = Replacement();
  return replacement != nullptr ? *replacement : *own;
}

}  // namespace v4l2
