// The output of a command: a file or standard output.
#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>

#include "cli/StopSignals.h"

namespace nuveqcam {

#ifdef _WIN32
using FileHandle = void*;
// INVALID_HANDLE_VALUE, without <windows.h>.
inline void* const kNoFile = reinterpret_cast<void*>(std::intptr_t{-1});  // NOLINT(performance-no-int-to-ptr)
#else
using FileHandle = int;
inline constexpr FileHandle kNoFile = -1;
#endif

class OutputFile {
 public:
  // Opens the file for writing; "-" is standard output. An existing file keeps its content until the first
  // Write, so that a camera that cannot be opened does not destroy an earlier recording. For a named pipe
  // (Linux), waits for a reader. Throws Failure: kCannotWrite, as Write and Close do, or kEndedEarly if a
  // stop signal ends the wait.
  //
  // Takes the signals to ensure that they are installed before the file is created: an interrupt then cannot
  // leave an empty file. Failures name the option or the environment variable that selects another file.
  OutputFile(const std::string& path, const StopSignals& signals, std::string option = "-o");
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;
  // Removes the file if the constructor created it and nothing was written.
  ~OutputFile();

  // Writes all bytes at the current position. Blocks while the reader is slow, also if the descriptor is
  // non-blocking.
  void Write(std::span<const std::uint8_t> bytes);
  // Moves the position as lseek does. Returns the new position, or -1.
  std::int64_t Seek(std::int64_t offset, int whence);
  bool CanSeek() const { return m_canSeek; }
  // True if the path leads to the same file.
  bool IsSameAs(const std::string& path) const;
  // Closes the file and reports errors of delayed writes.
  void Close();

  // Human-readable and sanitized.
  const std::string& Name() const { return m_name; }

 private:
  // Throws the failure for a system error code.
  [[noreturn]] void Fail(int errorCode) const;
  void Open(const StopSignals& signals);
  void TruncateOnFirstWrite();

  std::string m_path;
  std::string m_name;
  std::string m_option;
  std::filesystem::path m_createdPath;  // empty: the constructor did not create a file
  FileHandle m_handle = kNoFile;
  bool m_isStandardOutput = false;
  bool m_isRegular = false;
  bool m_canSeek = false;
  bool m_hasWritten = false;
};

}  // namespace nuveqcam
