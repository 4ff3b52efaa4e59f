// Runs a program and sends it SIGINT at the N-th system call of its main thread.
//
//   interrupt_at_call N REPORT PROGRAM [ARGUMENT...]
//
// If N is 0, no signal is sent. PROGRAM is a path. At the end, a JSON object is written to the file REPORT:
//   calls        number of system calls of the main thread: all of them, or up to the N-th
//   handled      number of the call that installed a SIGINT handler; 0: none
//   created      number of the call that created the first file with a relative name; 0: none
//   slept        number of the first call that sleeps; 0: none
//   interrupted  whether the signal was sent
//   status       the program's exit code, or -S if signal S ended it
//
// The exit code is 0, or 125 if the program cannot be traced, for example in a sandbox.
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <system_error>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int kCannotTrace = 125;
constexpr int kSystemCallStop = SIGTRAP | 0x80;  // with PTRACE_O_TRACESYSGOOD

[[noreturn]] void Fail(const char* what) { throw std::system_error(errno, std::generic_category(), what); }

void Require(long result, const char* what) {
  if (result < 0) {
    Fail(what);
  }
}

struct Report {
  std::uint64_t calls = 0;
  std::uint64_t handled = 0;
  std::uint64_t created = 0;
  std::uint64_t slept = 0;
  bool isInterrupted = false;
  int status = 0;
};

[[noreturn]] void RunTraced(char** program) {
  // A shell makes background jobs ignore SIGINT, and children inherit that.
  signal(SIGINT, SIG_DFL);
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0 && raise(SIGSTOP) == 0) {
    execv(program[0], program);
  }
  std::perror("interrupt_at_call");
  _exit(kCannotTrace);
}

class Tracer {
 public:
  Tracer(pid_t child, std::uint64_t interruptAt) : m_child(child), m_interruptAt(interruptAt) {}

  Report Run() {
    int status = Wait();
    if (!WIFSTOPPED(status)) {
      throw std::runtime_error("the program cannot be traced");
    }
    Require(ptrace(PTRACE_SETOPTIONS, m_child, nullptr,
                   PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACEEXEC | PTRACE_O_EXITKILL),
            "PTRACE_SETOPTIONS");
    int signalToDeliver = 0;
    while (true) {
      // The signal has arrived; the rest of the run is not traced.
      if (m_report.isInterrupted && signalToDeliver == SIGINT) {
        Require(ptrace(PTRACE_DETACH, m_child, nullptr, SIGINT), "PTRACE_DETACH");
        status = Wait();
        break;
      }
      Require(
          ptrace(m_report.isInterrupted ? PTRACE_CONT : PTRACE_SYSCALL, m_child, nullptr, signalToDeliver),
          "PTRACE_SYSCALL");
      status = Wait();
      if (!WIFSTOPPED(status)) {
        break;
      }
      signalToDeliver = AtStop(status);
    }
    m_report.status = WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
    return m_report;
  }

 private:
  int Wait() const {
    int status = 0;
    Require(waitpid(m_child, &status, 0), "waitpid");
    return status;
  }

  // Returns the signal that stopped the program; 0: none.
  int AtStop(int status) {
    if (WSTOPSIG(status) == kSystemCallStop) {
      AtSystemCall();
      return 0;
    }
    const bool isExec = status >> 8 == (SIGTRAP | PTRACE_EVENT_EXEC << 8);
    return isExec ? 0 : WSTOPSIG(status);
  }

  void AtSystemCall() {
    __ptrace_syscall_info info{};
    Require(ptrace(PTRACE_GET_SYSCALL_INFO, m_child, sizeof(info), &info), "PTRACE_GET_SYSCALL_INFO");
    if (info.op != PTRACE_SYSCALL_INFO_ENTRY) {
      return;
    }
    ++m_report.calls;
    const auto& call = info.entry;
    if (call.nr == SYS_rt_sigaction && call.args[0] == SIGINT && call.args[1] != 0) {
      NoteFirst(m_report.handled);
    } else if (call.nr == SYS_openat && (call.args[2] & O_CREAT) != 0 && IsRelativeName(call.args[1])) {
      NoteFirst(m_report.created);
    } else if (call.nr == SYS_clock_nanosleep || call.nr == SYS_nanosleep) {
      NoteFirst(m_report.slept);
    }
    if (m_report.calls == m_interruptAt) {
      Require(syscall(SYS_tgkill, m_child, m_child, SIGINT), "tgkill");
      m_report.isInterrupted = true;
    }
  }

  // ThreadSanitizer creates a file, too, with an absolute name.
  bool IsRelativeName(std::uint64_t address) const {
    errno = 0;
    const long name = ptrace(PTRACE_PEEKDATA, m_child, address, nullptr);
    Require(errno == 0 ? 0 : -1, "PTRACE_PEEKDATA");
    return static_cast<char>(name & 0xFF) != '/';
  }

  void NoteFirst(std::uint64_t& which) const { which = which == 0 ? m_report.calls : which; }

  pid_t m_child;
  std::uint64_t m_interruptAt;
  Report m_report;
};

void Write(const Report& report, const char* file) {
  std::ofstream stream(file);
  stream << nlohmann::json{{"calls", report.calls},
                           {"handled", report.handled},
                           {"created", report.created},
                           {"slept", report.slept},
                           {"interrupted", report.isInterrupted},
                           {"status", report.status}}
         << "\n";
  if (!stream.flush()) {
    throw std::runtime_error("cannot write the report");
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) {
    std::cerr << "usage: interrupt_at_call N REPORT PROGRAM [ARGUMENT...]" << std::endl;
    return 2;
  }
  try {
    const std::uint64_t interruptAt = std::stoull(argv[1]);
    const pid_t child = fork();
    Require(child, "fork");
    if (child == 0) {
      RunTraced(argv + 3);
    }
    Write(Tracer(child, interruptAt).Run(), argv[2]);
    return 0;
  } catch (const std::exception& error) {
    std::cerr << "interrupt_at_call: " << error.what() << std::endl;
    return kCannotTrace;
  }
}
