// Many sessions in one process: no frame is lost, and no resource leaks.
#include <windows.h>

#include <psapi.h>
#include <tlhelp32.h>

#include <cstdint>
#include <string>

#include "WindowsCameraTest.h"
#include "support/video/NumberReader.h"

namespace {

constexpr int kRounds = 200;
// The library is reloaded once per this number of rounds.
constexpr int kRoundsPerLoad = 20;
// By then, every size and way to close has been used and the library has been reloaded.
constexpr int kWarmUp = 40;
// Frames in the library's frame pool.
constexpr std::uint64_t kPoolSize = 5;
constexpr std::size_t kMemorySlack = std::size_t{16} << 20;

unsigned ThreadCount() {
  HANDLE all = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
  THREADENTRY32 entry{};
  entry.dwSize = sizeof(entry);
  unsigned count = 0;
  for (BOOL more = Thread32First(all, &entry); more != FALSE; more = Thread32Next(all, &entry)) {
    count += entry.th32OwnerProcessID == GetCurrentProcessId() ? 1U : 0U;
  }
  CloseHandle(all);
  return count;
}

struct MemoryUse {
  std::size_t committed = 0;
  std::size_t workingSet = 0;
};

MemoryUse CurrentMemoryUse() {
  PROCESS_MEMORY_COUNTERS memory{};
  GetProcessMemoryInfo(GetCurrentProcess(), &memory, sizeof(memory));
  return {memory.PagefileUsage, memory.WorkingSetSize};
}

// Covers both layouts, with and without the decoder.
video::PictureSize SizeOf(int round) {
  switch (round % 10) {
    case 4:
      return {1280, 720};  // MJPG, which has the higher rate
    case 9:
      return {640, 480};
    default:
      return {320, 240};
  }
}

class Soak : public WindowsCameraTest {
 protected:
  void Round(int round) {
    const video::PictureSize size = SizeOf(round);
    const bool isDrained = round % 2 == 0;
    video::NumberReader reader(size);
    SetCallbacks(reader, isDrained);
    ASSERT_EQ(Query(), 0);
    ASSERT_EQ(Open(size.width, size.height), 0);
    EXPECT_TRUE(host.WaitForPackets(static_cast<std::uint64_t>(1 + round % 4)));
    // 0 because WaitForCompletion fails for a stopped graph.
    ASSERT_EQ(Close(), 0);
    CheckFrames(reader, isDrained);
    EXPECT_THAT(reports, ::testing::ElementsAre("status callback \"0\" 1 4", "status callback \"0\" 1 3"));
    reports.clear();
    log.Clear();
    EXPECT_EQ(fixtures::LiveObjects(), 0);
    EXPECT_EQ(fixtures::StreamingThreads(), 0);
  }

  void Reload() {
    Unload();
    ASSERT_FALSE(IsMapped());
    ASSERT_NO_FATAL_FAILURE(Load());
  }

 private:
  void SetCallbacks(video::NumberReader& reader, bool isDrained) {
    host.Reset();
    host.KeepPackets(false);
    host.InData([&reader](const Packet& packet) {
      try {
        reader.Read(packet.bytes.data(), static_cast<std::uint32_t>(packet.bytes.size()));
      } catch (const video::StreamError& failure) {
        ADD_FAILURE() << failure.what();
      }
    });
    if (isDrained) {
      // The graph has stopped when the close is reported; the encoder thread still drains the queue.
      host.InStatus([this](int status) {
        if (status == NUVEQ_SERVICE_STATUS_CAMERA_CLOSED) {
          EXPECT_TRUE(host.WaitForPackets(fixtures::DeliveredFrames()));
        }
      });
    }
  }

  // The reader checks that numbers start at 0 without a gap. So only the last frames, which were in the pool
  // at the close, can lack a packet.
  void CheckFrames(video::NumberReader& reader, bool isDrained) const {
    EXPECT_NO_THROW(reader.Finish());
    EXPECT_EQ(reader.Packets(), host.PacketCount());
    EXPECT_LE(reader.Packets(), fixtures::DeliveredFrames());
    EXPECT_GE(reader.Packets() + (isDrained ? 0 : kPoolSize), fixtures::DeliveredFrames());
  }
};

TEST_F(Soak, TwoHundredSessionsLoseNoFrameAndLeakNothing) {
  unsigned threads = 0;
  MemoryUse memory;
  for (int round = 0; round < kRounds && !HasFailure(); ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    if (round % kRoundsPerLoad == kRoundsPerLoad - 1) {
      ASSERT_NO_FATAL_FAILURE(Reload());
    }
    ASSERT_NO_FATAL_FAILURE(Round(round));
    if (round == kWarmUp) {
      threads = ThreadCount();
      memory = CurrentMemoryUse();
    }
  }
  // The slack allows for thread and memory pools of the system. 160 rounds that each leak a thread or a frame
  // of 150 kB exceed it.
  EXPECT_LE(ThreadCount(), threads + 2);
  EXPECT_LE(CurrentMemoryUse().committed, memory.committed + kMemorySlack);
  EXPECT_LE(CurrentMemoryUse().workingSet, memory.workingSet + kMemorySlack);
}

}  // namespace
