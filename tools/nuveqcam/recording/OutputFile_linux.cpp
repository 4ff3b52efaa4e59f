#include "recording/OutputFile.h"

#include <cerrno>
#include <chrono>
#include <system_error>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include "cli/Failure.h"
#include "cli/Text.h"

namespace nuveqcam {
namespace {

constexpr mode_t kFileMode = 0666;
constexpr std::chrono::milliseconds kReaderPollInterval{20};

static_assert(EAGAIN == EWOULDBLOCK);

bool IsNamedPipe(const std::string& path) {
  struct stat status = {};
  return stat(path.c_str(), &status) == 0 && S_ISFIFO(status.st_mode);
}

// Waits for a reader by polling: a blocking open would miss a stop signal that arrives just before it.
// Returns -1 and sets errno on failure.
int OpenNamedPipe(const std::string& path, const std::string& name, const StopSignals& signals) {
  while (!signals.HasArrived()) {
    const int descriptor = open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (descriptor >= 0) {
      // Writes block.
      fcntl(descriptor, F_SETFL, fcntl(descriptor, F_GETFL) & ~O_NONBLOCK);
      return descriptor;
    }
    if (errno != ENXIO) {
      return descriptor;
    }
    // There is no reader yet.
    std::this_thread::sleep_for(kReaderPollInterval);
  }
  throw Failure(ExitCode::kEndedEarly,
                "interrupted before a program opened " + name + " for reading; nothing was written");
}

std::string NextStepAfter(int errorCode, bool isStandardOutput, const std::string& option) {
  if (errorCode == EPIPE) {
    return "the program that reads it has exited";
  }
  if (isStandardOutput) {
    return "write to a file with -o";
  }
  if (errorCode == ENOSPC || errorCode == EDQUOT || errorCode == EFBIG) {
    return "free some space there or choose another place with " + option;
  }
  if (errorCode == ENOENT) {
    return "create the folder first or choose another file with " + option;
  }
  return "choose another file with " + option;
}

}  // namespace

OutputFile::OutputFile(const std::string& path, const StopSignals& signals, std::string option)
    : m_path(path),
      m_name(path == "-" ? "standard output" : SanitizeForTerminal(path)),
      m_option(std::move(option)),
      m_isStandardOutput(path == "-") {
  if (m_isStandardOutput) {
    m_handle = STDOUT_FILENO;
  } else {
    Open(signals);
  }
  struct stat status = {};
  m_isRegular = fstat(m_handle, &status) == 0 && S_ISREG(status.st_mode);
  m_canSeek = !m_isStandardOutput && m_isRegular;
}

void OutputFile::Open(const StopSignals& signals) {
  constexpr int kFlags = O_WRONLY | O_CREAT | O_CLOEXEC;
  // Only a new file may be removed later.
  m_handle = open(m_path.c_str(), kFlags | O_EXCL, kFileMode);
  bool isNew = m_handle >= 0;
  if (!isNew && errno == EEXIST) {
    // A dangling symbolic link exists, but its target is created here.
    std::error_code error;
    isNew = !std::filesystem::exists(m_path, error) && !error;
    m_handle = IsNamedPipe(m_path) ? OpenNamedPipe(m_path, m_name, signals)
                                   : open(m_path.c_str(), kFlags, kFileMode);
  }
  if (m_handle < 0) {
    Fail(errno);
  }
  if (isNew) {
    // The target of a link, not the link. If it cannot be determined, the file is not removed.
    std::error_code error;
    m_createdPath = std::filesystem::canonical(m_path, error);
  }
}

OutputFile::~OutputFile() {
  if (m_handle >= 0 && !m_isStandardOutput) {
    close(m_handle);
  }
  if (!m_createdPath.empty() && !m_hasWritten) {
    unlink(m_createdPath.c_str());
  }
}

void OutputFile::Write(std::span<const std::uint8_t> bytes) {
  TruncateOnFirstWrite();
  while (!bytes.empty()) {
    const ssize_t written = write(m_handle, bytes.data(), bytes.size());
    if (written < 0 && errno == EAGAIN) {
      // The descriptor is non-blocking. The next write reports any error.
      pollfd room{m_handle, POLLOUT, 0};
      poll(&room, 1, -1);
    } else if (written < 0 && errno != EINTR) {
      Fail(errno);
    }
    if (written > 0) {
      bytes = bytes.subspan(static_cast<std::size_t>(written));
    }
  }
}

// Not for standard output: the shell may have opened the file for appending.
void OutputFile::TruncateOnFirstWrite() {
  if (!std::exchange(m_hasWritten, true) && m_canSeek && ftruncate(m_handle, 0) != 0) {
    Fail(errno);
  }
}

bool OutputFile::IsSameAs(const std::string& path) const {
  struct stat other = {};
  struct stat own = {};
  return stat(path.c_str(), &other) == 0 && fstat(m_handle, &own) == 0 && own.st_dev == other.st_dev &&
         own.st_ino == other.st_ino;
}

// NOLINTNEXTLINE(readability-make-member-function-const): the position is part of the file's state
std::int64_t OutputFile::Seek(std::int64_t offset, int whence) {
  return lseek(m_handle, static_cast<off_t>(offset), whence);
}

void OutputFile::Close() {
  const int descriptor = std::exchange(m_handle, kNoFile);
  if (descriptor >= 0 && !m_isStandardOutput && close(descriptor) != 0) {
    Fail(errno);
  }
}

void OutputFile::Fail(int errorCode) const {
  throw Failure(ExitCode::kCannotWrite, "cannot write " + m_name + ": " +
                                            std::generic_category().message(errorCode) + "; " +
                                            NextStepAfter(errorCode, m_isStandardOutput, m_option));
}

}  // namespace nuveqcam
