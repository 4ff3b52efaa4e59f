// System calls that fail on one thread.
#pragma once

#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <thread>

namespace support {

// Runs the action on a thread of its own, on which a system call (SYS_...) fails with an error number.
// Folders can be opened all the same. Returns whether the failure could be arranged.
template <typename Action>
bool WithFailingSystemCall(std::uint32_t systemCall, std::uint32_t error, Action&& action) {
  // Other calls may leave anything in the register of a third argument.
  const std::uint32_t exempt = systemCall == SYS_openat ? O_DIRECTORY : 0;
  bool isArranged = false;
  std::thread thread([&] {
    std::array<sock_filter, 6> filter{{
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, systemCall, 0, 3),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[2])),
        BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, exempt, 1, 0),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | error),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    }};
    const sock_fprog program{filter.size(), filter.data()};
    isArranged = prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
                 prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
    action();
  });
  thread.join();
  return isArranged;
}

}  // namespace support
