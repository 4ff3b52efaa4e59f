#include "recording/OutputFile.h"

#include <windows.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "cli/Failure.h"
#include "cli/Text.h"
#include "cli/WideText.h"

namespace nuveqcam {
namespace {

constexpr std::size_t kMaxWriteSize = std::size_t{1} << 20U;
constexpr DWORD kRetryInterval = 10;  // ms
// ERROR_DISK_QUOTA_EXCEEDED is missing from some SDK versions.
constexpr int kDiskQuotaExceeded = 1295;

struct HandleCloser {
  void operator()(HANDLE handle) const { CloseHandle(handle); }
};
using UniqueHandle = std::unique_ptr<void, HandleCloser>;

int LastError() { return static_cast<int>(GetLastError()); }

std::string NextStepAfter(int errorCode, bool isStandardOutput, const std::string& option) {
  switch (errorCode) {
    case ERROR_BROKEN_PIPE:
    case ERROR_NO_DATA:
    case ERROR_PIPE_NOT_CONNECTED:
      return "the program that reads it has exited";
    default:
      break;
  }
  if (isStandardOutput) {
    return "write to a file with -o";
  }
  switch (errorCode) {
    case ERROR_DISK_FULL:
    case ERROR_HANDLE_DISK_FULL:
    case ERROR_FILE_TOO_LARGE:
    case kDiskQuotaExceeded:
      return "free some space there or choose another place with " + option;
    case ERROR_PATH_NOT_FOUND:
      return "create the folder first or choose another file with " + option;
    case ERROR_SHARING_VIOLATION:
      return "close the program that uses it or choose another file with " + option;
    default:
      return "choose another file with " + option;
  }
}

// The path of the open file with links resolved; empty on failure.
std::wstring PathOf(HANDLE file) {
  std::wstring path(kMaxPathLength, L'\0');
  const DWORD length = GetFinalPathNameByHandleW(file, path.data(), static_cast<DWORD>(path.size()), 0);
  path.resize(length < path.size() ? length : 0);
  return path;
}

}  // namespace

OutputFile::OutputFile(const std::string& path, const StopSignals& signals, std::string option)
    : m_path(path),
      m_name(path == "-" ? "standard output" : SanitizeForTerminal(path)),
      m_option(std::move(option)),
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

// Other processes may read the file while it is written, but not write it.
void OutputFile::Open(const StopSignals& /*signals*/) {
  // A variable, because freeing a temporary could change the last error.
  const std::wstring path = ToWide(m_path);
  m_handle = CreateFileW(path.c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr, OPEN_ALWAYS,
                         FILE_ATTRIBUTE_NORMAL, nullptr);
  const int error = LastError();
  if (m_handle == kNoFile) {
    Fail(error);
  }
  // Only a new file may be removed later. If its path cannot be determined, it is not removed.
  if (error != ERROR_ALREADY_EXISTS && GetFileType(m_handle) == FILE_TYPE_DISK) {
    m_createdPath = PathOf(m_handle);
  }
}

OutputFile::~OutputFile() {
  if (m_handle != kNoFile && !m_isStandardOutput) {
    CloseHandle(m_handle);
  }
  if (!m_createdPath.empty() && !m_hasWritten) {
    DeleteFileW(m_createdPath.c_str());
  }
}

void OutputFile::Write(std::span<const std::uint8_t> bytes) {
  TruncateOnFirstWrite();
  while (!bytes.empty()) {
    const auto size = static_cast<DWORD>(std::min(bytes.size(), kMaxWriteSize));
    DWORD written = 0;
    if (WriteFile(m_handle, bytes.data(), size, &written, nullptr) == FALSE) {
      Fail(LastError());
    }
    if (written == 0) {
      // The pipe is in non-blocking mode, and there is no event for free room.
      Sleep(kRetryInterval);
    }
    bytes = bytes.subspan(written);
  }
}

// Not for standard output: the shell may have opened the file for appending.
void OutputFile::TruncateOnFirstWrite() {
  if (!std::exchange(m_hasWritten, true) && m_canSeek && SetEndOfFile(m_handle) == FALSE) {
    Fail(LastError());
  }
}

bool OutputFile::IsSameAs(const std::string& path) const {
  constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
  // No access rights: only the file's identity is needed.
  void* const opened = CreateFileW(ToWide(path).c_str(), 0, kShareAll, nullptr, OPEN_EXISTING,
                                   FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  if (opened == kNoFile) {
    return false;
  }
  const UniqueHandle file(opened);
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
    Fail(LastError());
  }
}

void OutputFile::Fail(int errorCode) const {
  throw Failure(ExitCode::kCannotWrite, "cannot write " + m_name + ": " +
                                            SystemMessage(static_cast<DWORD>(errorCode)) + "; " +
                                            NextStepAfter(errorCode, m_isStandardOutput, m_option));
}

}  // namespace nuveqcam
