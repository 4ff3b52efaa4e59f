// The file, or standard output, that a command writes.
#pragma once

#include <cstdint>
#include <filesystem>
#include <span>
#include <string>

#include "cli/StopSignals.h"
#include "recording/FileHandle.h"

class OutputFile {
 public:
  // Opens the file for writing; "-" is the standard output. What the file holds is left alone until the first
  // Write, so that a camera that cannot be opened costs nobody an earlier recording. Where the path is a
  // named pipe (Linux), waits for a reader. Throws Failure: kCannotWrite, as Write and Close do, or
  // kEndedEarly when a stop signal ends that wait.
  //
  // The signals are noted from before the file exists, so that an interrupt cannot leave an empty one behind.
  OutputFile(const std::string& path, const StopSignals& signals);
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;
  // Removes a file that the constructor made and nothing was written to.
  ~OutputFile();

  // Writes at the current position, all of it. Waits for a reader, however the descriptor was set up.
  void Write(std::span<const std::uint8_t> bytes);
  // Moves the position as lseek does and answers the new one, or -1.
  std::int64_t Seek(std::int64_t offset, int whence);
  bool CanSeek() const { return m_canSeek; }
  // True where that path leads to this very file.
  bool IsSameAs(const std::string& path) const;
  // Writing that the system put off fails here at the latest.
  void Close();

  // For people.
  const std::string& Name() const { return m_name; }

 private:
  // The failure to write for that reason, one of the system's error codes.
  [[noreturn]] void Fail(int reason) const;
  void Open(const StopSignals& signals);
  void TruncateOnFirstWrite();

  std::string m_path;
  std::string m_name;
  std::filesystem::path m_made;  // what the constructor made; empty: nothing
  FileHandle m_handle = kNoFile;
  bool m_isStandardOutput = false;
  bool m_isRegular = false;
  bool m_canSeek = false;
  bool m_isBegun = false;
};
