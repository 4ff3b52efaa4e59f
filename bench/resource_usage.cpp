// Runs a program and reports its resource usage. bench/run --unpaced cannot measure this itself: the
// kernel initialises the peak memory of a process with that of its parent, and a Python interpreter is larger
// than the measured programs.
//
//   build/native/bin/resource_usage FILE PROGRAM [ARGUMENT]...
//
// Writes one line to FILE: user time, system time and elapsed time in microseconds, peak resident set size in
// KiB. Exits with the status of the program, or terminates by the signal that terminated it.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <memory>

#include "ChildExit.h"

namespace bench {
namespace {

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

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fputs("usage: resource_usage FILE PROGRAM [ARGUMENT]...\n", stderr);
    return 2;
  }
  const auto started = std::chrono::steady_clock::now();
  const pid_t child = fork();
  if (child == 0) {
    execvp(argv[2], argv + 2);
    std::perror(argv[2]);
    _exit(bench::kExitNotStarted);
  }
  int status = 0;
  rusage used{};
  pid_t ended = -1;
  if (child > 0) {
    do {
      ended = wait4(child, &status, 0, &used);
    } while (ended < 0 && errno == EINTR);
  }
  if (child < 0 || ended != child ||
      !bench::WriteLine(argv[1], used, std::chrono::steady_clock::now() - started)) {
    std::perror("resource_usage");
    return bench::kExitMeasureFailed;
  }
  return bench::ExitLike(status);
}
