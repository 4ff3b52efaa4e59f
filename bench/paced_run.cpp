// Runs a program on frames that arrive at a camera's pace, and measures it from outside, for bench/run.
//
//   build/native/bin/paced_run FRAMES SIZES FPS SKIP OUT REPORT PROGRAM [ARGUMENT]...
//
// FRAMES has the frames one after another, SIZES the size of each in bytes. Frame 0 is waiting on the
// program's standard input when it starts, frame n arrives n / FPS seconds later. A frame arrives as a whole:
// its pages are moved from other pipes. Descriptor 3 of the program is memory for a camera's buffers
// (BufferMemory.h). OUT receives the program's standard output, REPORT the measurements, one a line:
//
//   frame NS                       when the next frame was due, in nanoseconds since the start of the program
//   output NS BYTES                when this many bytes in total had been received
//   steady CPU_NS SWITCHES         CPU time and context switches from the arrival of frame SKIP to one
//                                  interval after the last frame
//   peak KIB SHARED_KIB FILES_KIB  peak resident memory; at the end, shared memory and the pages of files
//   begin NS                       start of the program on CLOCK_MONOTONIC
//
// Exits with the status of the program, or terminates by the signal that terminated it.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <span>
#include <stdexcept>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "BufferMemory.h"
#include "ChildExit.h"

namespace bench {
namespace {

// std::chrono::steady_clock is CLOCK_MONOTONIC, which all processes share.
using Clock = std::chrono::steady_clock;
using std::chrono::nanoseconds;

// The size of a new pipe.
constexpr std::size_t kMinPipe = 65536;

[[noreturn]] void ThrowErrno(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

class Descriptor {
 public:
  explicit Descriptor(int number) : m_number(number) {}
  Descriptor(Descriptor&& other) noexcept : m_number(std::exchange(other.m_number, -1)) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() { Close(); }

  int Get() const { return m_number; }
  void Close() {
    if (m_number >= 0) {
      close(std::exchange(m_number, -1));
    }
  }

 private:
  int m_number;
};

struct Pipe {
  Descriptor read;
  Descriptor write;
  std::size_t capacity = 0;  // bytes
};

// Makes a pipe that holds the bytes, or as many as the system allows.
Pipe MakePipe(std::size_t bytes) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) {
    ThrowErrno("pipe2");
  }
  Pipe made{Descriptor(ends[0]), Descriptor(ends[1])};
  // NOLINTBEGIN(cppcoreguidelines-pro-type-vararg, hicpp-vararg): the signature of fcntl
  while (fcntl(ends[1], F_SETPIPE_SZ, static_cast<int>(bytes)) < 0 && bytes > kMinPipe) {
    bytes /= 2;
  }
  made.capacity = static_cast<std::size_t>(fcntl(ends[1], F_GETPIPE_SZ));
  // NOLINTEND(cppcoreguidelines-pro-type-vararg, hicpp-vararg)
  return made;
}

// Makes memory for a camera's buffers whose pages exist already.
Descriptor MakeBufferMemory(std::size_t maxFrame) {
  const std::size_t bytes = kMaxBuffers * BufferBytes(maxFrame);
  // Inherited by the program.
  Descriptor memory(memfd_create("camera", 0));
  if (memory.Get() < 0 || ftruncate(memory.Get(), static_cast<off_t>(bytes)) != 0) {
    ThrowErrno("memfd_create");
  }
  void* const pages =
      mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_POPULATE, memory.Get(), 0);
  if (pages == MAP_FAILED) {
    ThrowErrno("mmap");
  }
  munmap(pages, bytes);
  return memory;
}

// The frames of a clip, in memory that belongs to the page cache.
class Frames {
 public:
  Frames(const std::string& frames, const std::string& sizes) {
    std::ifstream list(sizes);
    for (std::size_t size = 0; list >> size;) {
      m_ends.push_back((m_ends.empty() ? 0 : m_ends.back()) + size);
    }
    const Descriptor file(open(frames.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat status {};
    if (file.Get() < 0 || fstat(file.Get(), &status) != 0) {
      ThrowErrno(frames);
    }
    if (m_ends.empty() || m_ends.back() != static_cast<std::size_t>(status.st_size)) {
      throw std::runtime_error(frames + " does not have the frames of " + sizes);
    }
    void* const memory = mmap(nullptr, m_ends.back(), PROT_READ, MAP_PRIVATE | MAP_POPULATE, file.Get(), 0);
    if (memory == MAP_FAILED) {
      ThrowErrno("mmap");
    }
    m_bytes = static_cast<const std::uint8_t*>(memory);
  }
  Frames(const Frames&) = delete;
  Frames& operator=(const Frames&) = delete;
  ~Frames() { munmap(const_cast<std::uint8_t*>(m_bytes), m_ends.back()); }

  std::size_t Count() const { return m_ends.size(); }
  std::span<const std::uint8_t> At(std::size_t number) const {
    const std::size_t begin = number == 0 ? 0 : m_ends[number - 1];
    return {m_bytes + begin, m_ends[number] - begin};
  }
  std::size_t MaxSize() const {
    std::size_t most = 0;
    for (std::size_t i = 0; i < Count(); ++i) {
      most = std::max(most, At(i).size());
    }
    return most;
  }

 private:
  std::vector<std::size_t> m_ends;
  const std::uint8_t* m_bytes = nullptr;
};

// Writes frames to the program. The expensive copy into pipes happens before a frame is due.
class Feeder {
 public:
  Feeder(std::size_t maxFrame, int target) : m_target(target) {
    // Users without privileges get pipes of 1 MiB at most: several hold one frame.
    for (std::size_t held = 0; held < maxFrame; held += m_staging.back().capacity) {
      m_staging.push_back(MakePipe(maxFrame - held));
    }
  }

  void Stage(std::span<const std::uint8_t> frame) {
    for (auto pipe = m_staging.begin(); !frame.empty(); ++pipe) {
      std::span<const std::uint8_t> part = frame.first(std::min(frame.size(), pipe->capacity));
      frame = frame.subspan(part.size());
      m_staged.push_back(part.size());
      while (!part.empty()) {
        const ssize_t written = write(pipe->write.Get(), part.data(), part.size());
        if (written < 0) {
          ThrowErrno("write");
        }
        part = part.subspan(static_cast<std::size_t>(written));
      }
    }
  }
  void Deliver() {
    for (std::size_t i = 0; i < m_staged.size(); ++i) {
      for (std::size_t left = m_staged[i]; left > 0;) {
        const ssize_t moved =
            splice(m_staging[i].read.Get(), nullptr, m_target, nullptr, left, SPLICE_F_MOVE);
        if (moved <= 0) {
          ThrowErrno("the program does not read its input");
        }
        left -= static_cast<std::size_t>(moved);
      }
    }
    m_staged.clear();
  }

 private:
  std::vector<Pipe> m_staging;
  int m_target;
  std::vector<std::size_t> m_staged;  // bytes in each pipe
};

struct Usage {
  std::int64_t cpu = 0;  // nanoseconds
  std::int64_t switches = 0;
};

// The value of a line such as "VmHWM:    1234 kB".
std::int64_t StatusValue(const std::filesystem::path& file, const std::string& name) {
  std::ifstream status(file);
  std::int64_t value = 0;
  for (std::string word; status >> word;) {
    if (word == name + ":") {
      status >> value;
      return value;
    }
  }
  throw std::runtime_error("the program ended before its input");
}

std::int64_t CpuTime(pid_t process) {
  clockid_t clock = 0;
  timespec used{};
  if (clock_getcpuclockid(process, &clock) != 0 || clock_gettime(clock, &used) != 0) {
    throw std::runtime_error("the program ended before its input");
  }
  return used.tv_sec * std::int64_t{1'000'000'000} + used.tv_nsec;
}

Usage UsageOf(pid_t process) {
  Usage usage{CpuTime(process), 0};
  std::error_code ignored;
  const std::filesystem::path tasks = std::filesystem::path("/proc") / std::to_string(process) / "task";
  for (const auto& task : std::filesystem::directory_iterator(tasks, ignored)) {
    const auto status = task.path() / "status";
    usage.switches += StatusValue(status, "voluntary_ctxt_switches");
    usage.switches += StatusValue(status, "nonvoluntary_ctxt_switches");
  }
  return usage;
}

struct Output {
  Clock::time_point time;
  std::uint64_t bytes;  // in total
};

// Reads the program's output on a thread of its own.
class Receiver {
 public:
  Receiver(int descriptor, const std::string& path)
      : m_file(path, std::ios::binary), m_thread([this, descriptor] { Read(descriptor); }) {}
  Receiver(const Receiver&) = delete;
  Receiver& operator=(const Receiver&) = delete;
  ~Receiver() { Finish(); }

  // Waits for the end of the output.
  void Finish() {
    if (m_thread.joinable()) {
      m_thread.join();
    }
    m_file.flush();
  }
  bool IsWritten() const { return m_file.good(); }
  const std::vector<Output>& Outputs() const { return m_outputs; }

 private:
  void Read(int descriptor) try {
    std::vector<char> buffer(std::size_t{1} << 20);
    std::uint64_t total = 0;
    for (ssize_t count = 0; (count = read(descriptor, buffer.data(), buffer.size())) > 0;) {
      const Clock::time_point now = Clock::now();
      total += static_cast<std::uint64_t>(count);
      m_outputs.push_back({now, total});
      m_file.write(buffer.data(), count);
    }
  } catch (const std::exception&) {
    m_file.setstate(std::ios::failbit);
  }

  std::ofstream m_file;
  std::vector<Output> m_outputs;
  std::thread m_thread;
};

struct Arguments {
  std::string frames;
  std::string sizes;
  int fps = 0;
  std::size_t skip = 0;
  std::string out;
  std::string report;
  char** program = nullptr;
};

pid_t Start(char** program, const Pipe& in, const Pipe& out, const Descriptor& bufferMemory) {
  const pid_t child = fork();
  if (child < 0) {
    ThrowErrno("fork");
  }
  if (child == 0) {
    std::signal(SIGPIPE, SIG_DFL);
    dup2(in.read.Get(), STDIN_FILENO);
    dup2(out.write.Get(), STDOUT_FILENO);
    dup2(bufferMemory.Get(), kBufferMemory);
    execvp(program[0], program);
    std::perror(program[0]);
    _exit(kExitNotStarted);
  }
  return child;
}

// A started program. Killed if it is still running at the end.
class Child {
 public:
  explicit Child(pid_t id) : m_id(id) {}
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  ~Child() { Kill(); }

  pid_t Id() const { return m_id; }
  void Kill() {
    if (m_id > 0) {
      kill(m_id, SIGKILL);
      Wait();
    }
  }
  // Returns the wait status.
  int Wait() {
    int status = 0;
    while (waitpid(m_id, &status, 0) < 0 && errno == EINTR) {
    }
    m_id = -1;
    return status;
  }

 private:
  pid_t m_id;
};

// Returns the wait status of the program.
int Measure(const Arguments& arguments) {
  const Frames frames(arguments.frames, arguments.sizes);
  Pipe in = MakePipe(4 * frames.MaxSize());
  Pipe out = MakePipe(std::size_t{1} << 20);
  const Descriptor bufferMemory = MakeBufferMemory(frames.MaxSize());
  Feeder feeder(frames.MaxSize(), in.write.Get());
  feeder.Stage(frames.At(0));
  const Clock::time_point begin = Clock::now();
  Child child(Start(arguments.program, in, out, bufferMemory));
  in.read.Close();
  out.write.Close();
  const std::filesystem::path status = std::filesystem::path("/proc") / std::to_string(child.Id()) / "status";
  Usage atSkip;
  Usage atEnd;
  std::int64_t peak = 0;
  std::int64_t shared = 0;
  std::int64_t files = 0;
  std::vector<Clock::time_point> arrivals{begin};
  int result = 0;
  Receiver receiver(out.read.Get(), arguments.out);
  try {
    feeder.Deliver();
    for (std::size_t number = 1; number <= frames.Count(); ++number) {
      if (number < frames.Count()) {
        feeder.Stage(frames.At(number));
      }
      const Clock::time_point due = begin + nanoseconds(std::chrono::seconds(1)) * number / arguments.fps;
      std::this_thread::sleep_until(due);
      if (number == arguments.skip) {
        atSkip = UsageOf(child.Id());
      }
      if (number < frames.Count()) {
        // A program that does not keep up delays the later frames, too.
        arrivals.push_back(due);
        feeder.Deliver();
      }
    }
    atEnd = UsageOf(child.Id());
    peak = StatusValue(status, "VmHWM");
    shared = StatusValue(status, "RssShmem");
    files = StatusValue(status, "RssFile");
    in.write.Close();
    receiver.Finish();
    result = child.Wait();
  } catch (const std::exception&) {
    // Otherwise the receiver would wait for the end of its output.
    child.Kill();
    throw;
  }
  if (!receiver.IsWritten()) {
    throw std::runtime_error("cannot write " + arguments.out);
  }
  std::ofstream report(arguments.report);
  report << "begin " << begin.time_since_epoch().count() << '\n';
  for (const Clock::time_point& arrival : arrivals) {
    report << "frame " << nanoseconds(arrival - begin).count() << '\n';
  }
  for (const Output& output : receiver.Outputs()) {
    report << "output " << nanoseconds(output.time - begin).count() << ' ' << output.bytes << '\n';
  }
  report << "steady " << atEnd.cpu - atSkip.cpu << ' ' << atEnd.switches - atSkip.switches << '\n'
         << "peak " << peak << ' ' << shared << ' ' << files << '\n';
  if (!report.flush()) {
    throw std::runtime_error("cannot write " + arguments.report);
  }
  return result;
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
  if (argc < 8) {
    std::fputs("usage: paced_run FRAMES SIZES FPS SKIP OUT REPORT PROGRAM [ARGUMENT]...\n", stderr);
    return 2;
  }
  std::signal(SIGPIPE, SIG_IGN);
  int status = 0;
  try {
    const int skip = std::atoi(argv[4]);
    bench::Arguments arguments{argv[1], argv[2], std::atoi(argv[3]), 0, argv[5], argv[6], argv + 7};
    if (arguments.fps <= 0 || skip <= 0) {
      throw std::invalid_argument("FPS and SKIP must be positive integers");
    }
    arguments.skip = static_cast<std::size_t>(skip);
    status = bench::Measure(arguments);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "paced_run: %s\n", failure.what());
    return bench::kExitMeasureFailed;
  }
  return bench::ExitLike(status);
}
