// Runs a program and says what it has cost: a process of its own, because what the system counts as a
// program's peak memory begins with that of the process that started it, and an interpreter's is larger than
// what is measured.
//
//   build/native/bin/measured FILE PROGRAM [ARGUMENT]...
//
// writes one line to FILE: user and system time in microseconds, elapsed microseconds, peak resident KiB.
// Answers what the program answers, and ends by the signal that the program ends by.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace {

constexpr int kCannotMeasure = 125;
constexpr int kCannotRun = 127;

long long Microseconds(const timeval& time) { return time.tv_sec * 1'000'000LL + time.tv_usec; }

bool WriteLine(const char* path, const rusage& used, std::chrono::steady_clock::duration elapsed) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path, "w"), &std::fclose);
  return file != nullptr &&
         std::fprintf(
             file.get(), "%lld %lld %lld %ld\n", Microseconds(used.ru_utime), Microseconds(used.ru_stime),
             static_cast<long long>(std::chrono::duration_cast<std::chrono::microseconds>(elapsed).count()),
             used.ru_maxrss) > 0 &&
         std::fflush(file.get()) == 0;
}

// Ends like the program, so that whoever waits for this one is told of the signal. The core is the program's.
[[noreturn]] void EndBy(int signal) {
  const rlimit noCore{0, 0};
  setrlimit(RLIMIT_CORE, &noCore);
  std::signal(signal, SIG_DFL);
  std::raise(signal);
  std::abort();  // unless it was blocked
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fputs("usage: measured FILE PROGRAM [ARGUMENT]...\n", stderr);
    return 2;
  }
  const auto started = std::chrono::steady_clock::now();
  const pid_t child = fork();
  if (child == 0) {
    execvp(argv[2], argv + 2);
    std::perror(argv[2]);
    _exit(kCannotRun);
  }
  int status = 0;
  rusage used{};
  pid_t ended = -1;
  if (child > 0) {
    do {
      ended = wait4(child, &status, 0, &used);
    } while (ended < 0 && errno == EINTR);
  }
  if (child < 0 || ended != child || !WriteLine(argv[1], used, std::chrono::steady_clock::now() - started)) {
    std::perror("measured");
    return kCannotMeasure;
  }
  if (WIFSIGNALED(status)) {
    EndBy(WTERMSIG(status));
  }
  return WEXITSTATUS(status);
}
