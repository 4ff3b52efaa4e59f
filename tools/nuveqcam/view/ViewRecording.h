// A recording that is made while the camera is viewed: an MP4 file in the folder for temporary files, from
// which the browser downloads it.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>

#include "cli/Failure.h"
#include "cli/StopSignals.h"
#include "recording/OutputFile.h"
#include "recording/PacketWriter.h"
#include "recording/WriterThread.h"
#include "view/LiveStream.h"
#include "view/PrivateFolder.h"

namespace nuveqcam {

// The free space for the user in the file system of a folder, in bytes; the maximum if it is unknown.
std::uintmax_t FreeSpaceOf(const std::filesystem::path& folder);

// A recording that exceeds a limit ends early.
struct ViewRecordingLimits {
  // How much may have arrived that is not written.
  std::size_t queuedBytes = std::size_t{64} << 20U;
  // What must stay free in the folder of the file, which other programs need, too.
  std::uintmax_t freeBytes = std::uintmax_t{256} << 20U;
  // Called by the thread that writes, about once a second. Must not throw.
  std::function<std::uintmax_t(const std::filesystem::path&)> freeSpaceOf = FreeSpaceOf;
};

// Thread-safe.
class ViewRecording final : private LiveReceiver {
 public:
  // Begins with the last key frame, which may be some seconds old. The stream must outlive the object. fps is
  // the nominal frame rate. Throws Failure (kCannotWrite).
  ViewRecording(LiveStream& stream, std::uint32_t fps, const StopSignals& signals,
                ViewRecordingLimits limits = {});
  ViewRecording(const ViewRecording&) = delete;
  ViewRecording& operator=(const ViewRecording&) = delete;
  // Removes the file, unless it was moved or is to be kept.
  ~ViewRecording() override;

  // Completes the file; waits until it is written. Throws Failure if the file cannot be played or has no
  // frames; another call has the same result. The recording also ends when the picture size changes or the
  // camera is closed, without an error, and if a limit is exceeded, with one. The file is then complete up to
  // there, but only after Finish.
  void Finish();

  struct Stats {
    bool isRunning = false;  // false once the recording has ended for any reason
    std::uint64_t frames = 0;
    std::uint64_t bytes = 0;
    double seconds = 0;
    std::string error;  // human-readable: why the recording has ended too early; empty: none
  };
  Stats Current() const;
  // Valid after Finish, until destruction.
  const std::filesystem::path& File() const { return m_path; }
  // The size of the file in bytes. Valid after Finish.
  std::uintmax_t FileSize() const { return m_fileSize; }

  // The file was sent as a whole.
  void NoteDownload() { m_isDownloaded = true; }
  bool IsDownloaded() const { return m_isDownloaded; }
  // Moves the file, after Finish, to a folder (empty: the current one). A number is added to the name if a
  // file has it already. Returns the new path. If that fails, throws Failure (kCannotWrite) with the path at
  // which the file is kept.
  std::filesystem::path MoveTo(const std::filesystem::path& folder, const std::string& name);

 private:
  // Why no more packets are written, apart from failures of the writer.
  enum class Problem { kNone, kTooSlow, kNoSpace, kOutOfMemory };

  // Checks the free space after the packets that it writes.
  class SpaceCheckedWriter : public PacketWriter {
   public:
    SpaceCheckedWriter(ViewRecording& recording, std::unique_ptr<PacketWriter> writer)
        : m_recording(recording), m_writer(std::move(writer)) {}

    void Write(const Packet& packet, FrameClock::Seconds time) override;
    void Finish() override { m_writer->Finish(); }

   private:
    ViewRecording& m_recording;
    const std::unique_ptr<PacketWriter> m_writer;
    Clock::time_point m_nextCheck;
  };

  void OnPacket(const LivePacketPtr& packet) noexcept override;
  void OnSessionEnd() noexcept override;
  void Queue(const LivePacket& packet);
  void Complete();
  bool HasSpace() const;
  void EndBecauseOf(Problem problem);
  std::string ErrorText() const;

  LiveStream& m_stream;
  const ViewRecordingLimits m_limits;
  PrivateFolder m_folder;
  const std::filesystem::path m_path;
  OutputFile m_file;
  SpaceCheckedWriter m_writer;
  PacketQueue m_queue;
  std::atomic<std::uintmax_t> m_fileSize = 0;
  std::atomic<bool> m_isDownloaded = false;

  std::mutex m_finishMutex;
  bool m_isFinished = false;  // guarded by m_finishMutex

  mutable std::mutex m_mutex;
  // Protected by m_mutex.
  bool m_hasBegun = false;  // with a key frame
  bool m_hasEnded = false;
  std::uint64_t m_receivedBytes = 0;
  Problem m_problem = Problem::kNone;
  std::optional<Failure> m_failure;  // of Finish

  WriterThread m_thread;  // calls m_writer, which uses the members above
};

}  // namespace nuveqcam
