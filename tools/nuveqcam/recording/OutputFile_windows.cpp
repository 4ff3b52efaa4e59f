#include "recording/OutputFile.h"

#include <windows.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "cli/Failure.h"
#include "cli/Text.h"
#include "cli/WideText.h"

namespace {

constexpr std::size_t kLargestWrite = std::size_t{1} << 20U;
constexpr DWORD kRetry = 10;  // ms
// Not in every version of the system's headers.
constexpr int kDiskQuotaExceeded = 1295;

struct CloseHandleAtEnd {
  void operator()(HANDLE handle) const { CloseHandle(handle); }
};
using OwnHandle = std::unique_ptr<void, CloseHandleAtEnd>;

int LatestError() { return static_cast<int>(GetLastError()); }

std::string NextStep(int reason, bool isStandardOutput) {
  switch (reason) {
    case ERROR_BROKEN_PIPE:
    case ERROR_NO_DATA:
    case ERROR_PIPE_NOT_CONNECTED:
      return "the program that reads it has ended";
    default:
      break;
  }
  if (isStandardOutput) {
    return "write to a file with -o";
  }
  switch (reason) {
    case ERROR_DISK_FULL:
    case ERROR_HANDLE_DISK_FULL:
    case ERROR_FILE_TOO_LARGE:
    case kDiskQuotaExceeded:
      return "make room there or choose another place with -o";
    case ERROR_PATH_NOT_FOUND:
      return "make the folder first or choose another file with -o";
    case ERROR_SHARING_VIOLATION:
      return "close the program that uses it or choose another file with -o";
    default:
      return "choose another file with -o";
  }
}

// The full path of the open file, whatever links led there; empty without an answer.
std::wstring PathOf(HANDLE file) {
  std::wstring path(kLongestPath, L'\0');
  const DWORD length = GetFinalPathNameByHandleW(file, path.data(), static_cast<DWORD>(path.size()), 0);
  path.resize(length < path.size() ? length : 0);
  return path;
}

}  // namespace

OutputFile::OutputFile(const std::string& path, const StopSignals& signals)
    : m_path(path),
      m_name(path == "-" ? "the standard output" : SanitizeForTerminal(path)),
      m_isStandardOutput(path == "-") {
  if (m_isStandardOutput) {
    m_handle = GetStdHandle(STD_OUTPUT_HANDLE);
    if (m_handle == nullptr || m_handle == kNoFile) {
      m_handle = kNoFile;
      Fail(ERROR_INVALID_HANDLE);
    }
  } else {
    Open(signals);
  }
  m_isRegular = GetFileType(m_handle) == FILE_TYPE_DISK;
  m_canSeek = !m_isStandardOutput && m_isRegular;
}

// Others may read the file meanwhile, not write it.
void OutputFile::Open(const StopSignals& /*signals*/) {
  // Freeing it may change the latest error, so it stays until that has been read.
  const std::wstring path = Wide(m_path);
  m_handle = CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_ALWAYS,
                         FILE_ATTRIBUTE_NORMAL, nullptr);
  const int error = LatestError();
  if (m_handle == kNoFile) {
    Fail(error);
  }
  // Whether the file is new decides whether it may go again. Without its path it stays.
  if (error != ERROR_ALREADY_EXISTS && GetFileType(m_handle) == FILE_TYPE_DISK) {
    m_made = PathOf(m_handle);
  }
}

OutputFile::~OutputFile() {
  if (m_handle != kNoFile && !m_isStandardOutput) {
    CloseHandle(m_handle);
  }
  if (!m_made.empty() && !m_isBegun) {
    DeleteFileW(m_made.c_str());
  }
}

void OutputFile::Write(std::span<const std::uint8_t> bytes) {
  TruncateOnFirstWrite();
  while (!bytes.empty()) {
    const auto size = static_cast<DWORD>(std::min(bytes.size(), kLargestWrite));
    DWORD written = 0;
    if (WriteFile(m_handle, bytes.data(), size, &written, nullptr) == FALSE) {
      Fail(LatestError());
    }
    if (written == 0) {
      // Whoever made the pipe wanted it not to wait, and nothing tells when there is room.
      Sleep(kRetry);
    }
    bytes = bytes.subspan(written);
  }
}

// Standard output that was redirected to a file is the shell's: it may append.
void OutputFile::TruncateOnFirstWrite() {
  if (!std::exchange(m_isBegun, true) && m_canSeek && SetEndOfFile(m_handle) == FALSE) {
    Fail(LatestError());
  }
}

bool OutputFile::IsSameAs(const std::string& path) const {
  constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
  // No access: only what it is.
  void* const opened = CreateFileW(Wide(path).c_str(), 0, kShareAll, nullptr, OPEN_EXISTING,
                                   FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  if (opened == kNoFile) {
    return false;
  }
  const OwnHandle file(opened);
  BY_HANDLE_FILE_INFORMATION other{};
  BY_HANDLE_FILE_INFORMATION own{};
  return GetFileInformationByHandle(file.get(), &other) != FALSE &&
         GetFileInformationByHandle(m_handle, &own) != FALSE &&
         own.dwVolumeSerialNumber == other.dwVolumeSerialNumber &&
         own.nFileIndexHigh == other.nFileIndexHigh && own.nFileIndexLow == other.nFileIndexLow;
}

// NOLINTNEXTLINE(readability-make-member-function-const): the position is part of the file's state
std::int64_t OutputFile::Seek(std::int64_t offset, int whence) {
  static_assert(SEEK_SET == FILE_BEGIN && SEEK_CUR == FILE_CURRENT && SEEK_END == FILE_END);
  LARGE_INTEGER distance{};
  distance.QuadPart = offset;
  LARGE_INTEGER position{};
  return SetFilePointerEx(m_handle, distance, &position, static_cast<DWORD>(whence)) != FALSE
             ? position.QuadPart
             : -1;
}

void OutputFile::Close() {
  void* const handle = std::exchange(m_handle, kNoFile);
  if (handle != kNoFile && !m_isStandardOutput && CloseHandle(handle) == FALSE) {
    Fail(LatestError());
  }
}

void OutputFile::Fail(int reason) const {
  throw Failure(ExitCode::kCannotWrite, "cannot write " + m_name + ": " +
                                            SystemMessage(static_cast<DWORD>(reason)) + "; " +
                                            NextStep(reason, m_isStandardOutput));
}
