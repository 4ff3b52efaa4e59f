// Many sessions in one process: every frame is accounted for, and nothing grows.
#include <windows.h>

#include <psapi.h>
#include <tlhelp32.h>

#include <cstdint>
#include <string>

#include "WindowsCameraTest.h"
#include "robustness/soak/SoakFailure.h"
#include "support/video/NumberReader.h"

namespace {

constexpr int kRounds = 200;
// The library is loaded anew once in that many.
constexpr int kRoundsPerLoad = 20;
// Every size and every way to close has been there, and the library has been unloaded once.
constexpr int kWarmUp = 40;
// The frames that the library's pool holds.
constexpr std::uint64_t kPool = 5;
constexpr std::size_t kMemorySlack = std::size_t{16} << 20;

unsigned ThreadsOfThisProcess() {
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

// What the process has for itself, and what of its memory is in use.
struct Memory {
  std::size_t own = 0;
  std::size_t working = 0;
};

Memory MemoryOfThisProcess() {
  PROCESS_MEMORY_COUNTERS memory{};
  GetProcessMemoryInfo(GetCurrentProcess(), &memory, sizeof(memory));
  return {memory.PagefileUsage, memory.WorkingSetSize};
}

// Both layouts, and the decoder that one of them needs.
PictureSize SizeOf(int round) {
  switch (round % 10) {
    case 4:
      return {1280, 720};  // MJPG, as it is the faster one
    case 9:
      return {640, 480};
    default:
      return {320, 240};
  }
}

class Soak : public WindowsCameraTest {
 protected:
  void Round(int round) {
    const PictureSize size = SizeOf(round);
    const bool takesAll = round % 2 == 0;
    NumberReader reader(size);
    Listen(reader, takesAll);
    ASSERT_EQ(Query(), 0);
    ASSERT_EQ(Open(size.width, size.height), 0);
    EXPECT_TRUE(host.WaitForPackets(static_cast<std::uint64_t>(1 + round % 4)));
    // The system does not call a stopped graph completed, and closing answers what the system says.
    ASSERT_EQ(Close(), 0);
    Account(reader, takesAll);
    EXPECT_THAT(reports, ::testing::ElementsAre("status callback \"0\" 1 4", "status callback \"0\" 1 3"));
    reports.clear();
    log.Forget();
    EXPECT_EQ(fixtures::LiveObjects(), 0);
    EXPECT_EQ(fixtures::StreamingThreads(), 0);
  }

  void LoadAnew() {
    Unload();
    ASSERT_FALSE(IsMapped());
    ASSERT_NO_FATAL_FAILURE(Load());
  }

 private:
  void Listen(NumberReader& reader, bool takesAll) {
    host.Reset();
    host.KeepPackets(false);
    host.InData([&reader](const Packet& packet) {
      try {
        reader.Read(packet.bytes.data(), static_cast<std::uint32_t>(packet.bytes.size()));
      } catch (const SoakFailure& failure) {
        ADD_FAILURE() << failure.what();
      }
    });
    if (takesAll) {
      // The graph has been stopped when the close is reported: the encoder thread works off what has come.
      host.InStatus([this](int status) {
        if (status == NUVEQ_SERVICE_STATUS_CAMERA_CLOSED) {
          EXPECT_TRUE(host.WaitForPackets(fixtures::DeliveredFrames()));
        }
      });
    }
  }

  // Numbers run from 0 without a gap, so that frames without a packet are the last ones, which closing found
  // in the pool.
  void Account(NumberReader& reader, bool takesAll) const {
    EXPECT_NO_THROW(reader.Finish());
    EXPECT_EQ(reader.Packets(), host.PacketCount());
    EXPECT_LE(reader.Packets(), fixtures::DeliveredFrames());
    EXPECT_GE(reader.Packets() + (takesAll ? 0 : kPool), fixtures::DeliveredFrames());
  }
};

TEST_F(Soak, TwoHundredRoundsLoseNoFrameAndLeaveNothing) {
  unsigned threads = 0;
  Memory memory;
  for (int round = 0; round < kRounds && !HasFailure(); ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    if (round % kRoundsPerLoad == kRoundsPerLoad - 1) {
      ASSERT_NO_FATAL_FAILURE(LoadAnew());
    }
    ASSERT_NO_FATAL_FAILURE(Round(round));
    if (round == kWarmUp) {
      threads = ThreadsOfThisProcess();
      memory = MemoryOfThisProcess();
    }
  }
  // The system's own pools of threads and memory breathe a little; 160 rounds that each kept a thread or a
  // frame of 150 kB would show.
  EXPECT_LE(ThreadsOfThisProcess(), threads + 2);
  EXPECT_LE(MemoryOfThisProcess().own, memory.own + kMemorySlack);
  EXPECT_LE(MemoryOfThisProcess().working, memory.working + kMemorySlack);
}

}  // namespace
