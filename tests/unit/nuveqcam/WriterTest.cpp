// The writer thread and the raw writer.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <condition_variable>

#include "Outputs.h"
#include "TemporaryFolder.h"
#include "cli/Failure.h"
#include "recording/PacketWriter.h"
#include "recording/WriterThread.h"

namespace nuveqcam {
namespace {

using ::testing::ElementsAre;

Packet KeyPacket(std::uint8_t mark) { return {{0, 0, 0, 1, 0x65, mark}, Clock::now()}; }
Packet OtherPacket(std::uint8_t mark) { return {{0, 0, 0, 1, 0x61, mark}, Clock::now()}; }

class FakeWriter : public PacketWriter {
 public:
  void Write(const Packet& packet, FrameClock::Seconds /*time*/) override {
    if (packet.bytes.back() == failsAt) {
      throw Failure(ExitCode::kCannotWrite, "no room");
    }
    marks.push_back(packet.bytes.back());
  }
  void Finish() override { isFinished = true; }

  int failsAt = -1;
  std::vector<int> marks;
  bool isFinished = false;
};

TEST(WriterThread, WritesAllPacketsBeforeItFinishes) {
  PacketQueue queue(1000);
  FakeWriter writer;
  WriterThread thread(queue, writer, 30);
  queue.Push(KeyPacket(1));
  queue.Push(OtherPacket(2));
  queue.Push(OtherPacket(3));
  thread.Finish();
  EXPECT_THAT(writer.marks, ElementsAre(1, 2, 3));
  EXPECT_TRUE(writer.isFinished);
  const WriterStats written = thread.Stats();
  EXPECT_EQ(written.frames, 3);
  EXPECT_EQ(written.keyFrames, 1);
  EXPECT_EQ(written.bytes, 18);
  EXPECT_GT(written.duration.count(), 1.0 / 30);
}

TEST(WriterThread, FailureAbandonsTheQueueAndIsThrownByFinish) {
  PacketQueue queue(1000);
  FakeWriter writer;
  writer.failsAt = 2;
  WriterThread thread(queue, writer, 30);
  queue.Push(KeyPacket(1));
  queue.Push(OtherPacket(2));
  // The queue is abandoned once the write has failed.
  while (queue.Push(OtherPacket(3))) {
    std::this_thread::yield();
  }
  EXPECT_TRUE(thread.HasFailed());
  EXPECT_THROW(thread.Finish(), Failure);
  EXPECT_THAT(writer.marks, ElementsAre(1));
  EXPECT_FALSE(writer.isFinished);
}

TEST(WriterThread, WithoutFinishCompletesNoFile) {
  PacketQueue queue(1000);
  FakeWriter writer;
  {
    // Destroyed at once.
    const WriterThread thread(queue, writer, 30);
  }
  EXPECT_FALSE(writer.isFinished);
  EXPECT_FALSE(queue.Push(KeyPacket(1)));
}

using WriterFile = TemporaryFolder;

TEST_F(WriterFile, RawWriterKeepsPacketsUnchanged) {
  OutputFile file(NameOf(folder / "a.h264"), StopSignals());
  const auto writer = MakePacketWriter(OutputKind::kRawH264, file, 30);
  writer->Write(KeyPacket(7), {});
  writer->Write(OtherPacket(8), {});
  writer->Finish();
  EXPECT_EQ(ContentOf(folder / "a.h264"), std::string("\0\0\0\1\x65\7\0\0\0\1\x61\x8", 12));
}

}  // namespace
}  // namespace nuveqcam
