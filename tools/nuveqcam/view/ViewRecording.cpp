#include "view/ViewRecording.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <limits>
#include <new>
#include <system_error>
#include <utility>

#include "cli/SystemTraits.h"
#include "cli/Text.h"

namespace nuveqcam {
namespace {

constexpr std::chrono::seconds kSpaceCheckInterval{1};

std::string Utf8NameOf(const std::filesystem::path& path) {
  const std::u8string name = path.u8string();
  return {name.begin(), name.end()};
}

constexpr const char* kOutOfMemoryText = "out of memory; close other programs or choose a smaller size";

Failure ToFailure(const std::exception_ptr& exception) {
  try {
    std::rethrow_exception(exception);
  } catch (const Failure& failure) {
    return failure;
  } catch (const std::bad_alloc&) {
    return {ExitCode::kUnexpected, kOutOfMemoryText};
  } catch (const std::exception& error) {
    return {ExitCode::kUnexpected, std::string("unexpected failure: ") + error.what() + "; try again"};
  }
}

// "camera.mp4", "camera-2.mp4", "camera-3.mp4"
std::filesystem::path NumberedName(const std::filesystem::path& name, int number) {
  std::filesystem::path numbered = name.stem();
  if (number > 1) {
    numbered += "-" + std::to_string(number);
  }
  numbered += name.extension();
  return numbered;
}

// Gives the file another name, on another file system by a copy. Never overwrites a file.
void LinkOrCopy(const std::filesystem::path& from, const std::filesystem::path& to, std::error_code& error) {
  std::filesystem::create_hard_link(from, to, error);
  if (!error || error == std::errc::file_exists) {
    return;
  }
  if (std::filesystem::exists(to, error)) {
    error = std::make_error_code(std::errc::file_exists);
    return;
  }
  if (!std::filesystem::copy_file(from, to, std::filesystem::copy_options::none, error) &&
      error != std::errc::file_exists) {
    // Incomplete, for example because the disk is full.
    std::error_code ignored;
    std::filesystem::remove(to, ignored);
  }
}

}  // namespace

std::uintmax_t FreeSpaceOf(const std::filesystem::path& folder) {
  std::error_code error;
  const std::filesystem::space_info space = std::filesystem::space(folder, error);
  return error ? std::numeric_limits<std::uintmax_t>::max() : space.available;
}

ViewRecording::ViewRecording(LiveStream& stream, std::uint32_t fps, const StopSignals& signals,
                             ViewRecordingLimits limits)
    : m_stream(stream),
      m_limits(std::move(limits)),
      m_path(m_folder.Path() / "recording.mp4"),
      m_file(Utf8NameOf(m_path), signals, ThisSystem().tempFolderVariable),
      m_writer(*this, MakePacketWriter(OutputKind::kMp4, m_file, std::max<std::uint32_t>(fps, 1))),
      m_queue(m_limits.queuedBytes),
      m_thread(m_queue, m_writer, std::max<std::uint32_t>(fps, 1)) {
  if (!HasSpace()) {
    throw Failure(ExitCode::kCannotWrite,
                  "the disk with the folder for temporary files is almost full; free some space there, or "
                  "choose another folder with " +
                      std::string(ThisSystem().tempFolderVariable));
  }
  // The thread that publishes must not wait. Queue bounds the memory instead.
  m_queue.SetUnbounded();
  m_stream.Attach(*this);
}

ViewRecording::~ViewRecording() { m_stream.Detach(*this); }

void ViewRecording::Finish() {
  m_stream.Detach(*this);
  const std::lock_guard finishLock(m_finishMutex);
  std::optional<Failure> failure;
  if (!std::exchange(m_isFinished, true)) {
    try {
      Complete();
    } catch (const std::exception&) {
      failure = ToFailure(std::current_exception());
    }
  }
  const std::lock_guard lock(m_mutex);
  m_hasEnded = true;
  if (failure) {
    m_failure = failure;
  }
  if (m_failure) {
    throw Failure(*m_failure);
  }
}

void ViewRecording::Complete() {
  m_thread.Finish();
  if (m_thread.Stats().frames == 0) {
    throw Failure(ExitCode::kEndedEarly,
                  "nothing was recorded: no picture has arrived; wait until the camera's picture is shown");
  }
  std::error_code error;
  m_fileSize = std::filesystem::file_size(m_path, error);
  if (error) {
    throw Failure(ExitCode::kUnexpected,
                  "cannot read the recording in the folder for temporary files; record again");
  }
}

bool ViewRecording::HasSpace() const { return m_limits.freeSpaceOf(m_folder.Path()) >= m_limits.freeBytes; }

void ViewRecording::SpaceCheckedWriter::Write(const Packet& packet, FrameClock::Seconds time) {
  m_writer->Write(packet, time);
  const auto now = Clock::now();
  if (now < m_nextCheck) {
    return;
  }
  m_nextCheck = now + kSpaceCheckInterval;
  if (!m_recording.HasSpace()) {
    const std::lock_guard lock(m_recording.m_mutex);
    m_recording.EndBecauseOf(Problem::kNoSpace);
  }
}

std::filesystem::path ViewRecording::MoveTo(const std::filesystem::path& folder, const std::string& name) {
  std::error_code error;
  for (int number = 1;; ++number) {
    std::filesystem::path path = folder / NumberedName(name, number);
    LinkOrCopy(m_path, path, error);
    if (!error) {
      return path;
    }
    if (error != std::errc::file_exists) {
      break;
    }
  }
  m_folder.Keep();
  throw Failure(ExitCode::kCannotWrite, "cannot move the recording to " +
                                            (folder.empty() ? std::string("the current folder")
                                                            : SanitizeForTerminal(Utf8NameOf(folder))) +
                                            ": " + SanitizeForTerminal(error.message()) + "; it is kept as " +
                                            SanitizeForTerminal(Utf8NameOf(m_path)));
}

ViewRecording::Stats ViewRecording::Current() const {
  const WriterStats written = m_thread.Stats();
  const std::lock_guard lock(m_mutex);
  return {.isRunning = !m_hasEnded && !m_thread.HasFailed(),
          .frames = written.frames,
          .bytes = written.bytes,
          .seconds = written.duration.count(),
          .error = ErrorText()};
}

// Requires m_mutex.
std::string ViewRecording::ErrorText() const {
  if (m_failure) {
    return m_failure->what();
  }
  if (const std::exception_ptr failure = m_thread.WriteFailure(); failure != nullptr) {
    return ToFailure(failure).what();
  }
  switch (m_problem) {
    case Problem::kTooSlow:
      return std::string(
                 "the recording has ended because it is written too slowly; choose a smaller size, or a "
                 "folder on a faster disk with ") +
             ThisSystem().tempFolderVariable;
    case Problem::kNoSpace:
      return std::string(
                 "the recording has ended because the disk with the folder for temporary files is almost "
                 "full; free some space there, or choose another folder with ") +
             ThisSystem().tempFolderVariable;
    case Problem::kOutOfMemory:
      return kOutOfMemoryText;
    case Problem::kNone:
      break;
  }
  return {};
}

void ViewRecording::OnPacket(const LivePacketPtr& packet) noexcept {
  const std::lock_guard lock(m_mutex);
  m_hasBegun = m_hasBegun || packet->isKeyFrame;
  if (!m_hasBegun || m_hasEnded) {
    return;
  }
  try {
    Queue(*packet);
  } catch (const std::exception&) {
    m_problem = Problem::kOutOfMemory;
    m_hasEnded = true;
  }
}

void ViewRecording::OnSessionEnd() noexcept {
  const std::lock_guard lock(m_mutex);
  m_hasEnded = m_hasEnded || m_hasBegun;
}

// Requires m_mutex.
void ViewRecording::Queue(const LivePacket& packet) {
  m_receivedBytes += packet.packet.bytes.size();
  if (m_receivedBytes - m_thread.Stats().bytes > m_limits.queuedBytes) {
    EndBecauseOf(Problem::kTooSlow);
  } else {
    // The queue is abandoned after a failed write.
    m_hasEnded = !m_queue.Push(packet.packet);
  }
}

// Requires m_mutex. What has been written stays a complete file.
void ViewRecording::EndBecauseOf(Problem problem) {
  if (m_hasEnded) {
    return;
  }
  // Releases the memory.
  m_queue.Abandon();
  m_problem = problem;
  m_hasEnded = true;
}

}  // namespace nuveqcam
