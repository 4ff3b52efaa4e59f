#include "v4l2/SystemCalls.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <memory>

namespace {

std::atomic<System*>& Replacement() {
  static std::atomic<System*> replacement{nullptr};
  return replacement;
}

}  // namespace

// NOLINTBEGIN(cppcoreguidelines-pro-type-vararg, hicpp-vararg): the system's own interfaces
int System::Open(const char* path, int flags) { return ::open(path, flags); }
int System::Ioctl(int descriptor, unsigned long request, void* argument) {
  return ::ioctl(descriptor, request, argument);
}
// NOLINTEND(cppcoreguidelines-pro-type-vararg, hicpp-vararg)

int System::Close(int descriptor) { return ::close(descriptor); }

void* System::Map(std::size_t size, int descriptor, off_t offset) {
  return ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, offset);
}

int System::Unmap(void* address, std::size_t size) { return ::munmap(address, size); }

int System::Poll(pollfd* entries, nfds_t count, int timeoutMs) { return ::poll(entries, count, timeoutMs); }

std::filesystem::path System::SysfsRoot() const { return "/sys"; }
std::filesystem::path System::DevRoot() const { return "/dev"; }

void UseSystem(System* system) { Replacement() = system; }

System& CurrentSystem() {
  // Never destroyed: at the end of a process a camera that was left open still streams.
  static System* const own = std::make_unique<System>().release();
  System* const replacement = Replacement();
  return replacement != nullptr ? *replacement : *own;
}
