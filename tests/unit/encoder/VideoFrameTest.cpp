// VideoFrame and the memory of packets.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "encoder/PacketMemory.h"
#include "support/video/DecodedStream.h"

namespace {

TEST(VideoFrame, IsEmptyAfterConstruction) {
  const VideoFrame frame;
  EXPECT_EQ(frame.data, nullptr);
  EXPECT_EQ(frame.size, 0U);
}

TEST(VideoFrame, AllocatesAnAlignedBufferForItsLayout) {
  struct Case {
    std::uint32_t width;
    std::uint32_t height;
    ColorSpace layout;
    std::uint32_t size;
  };
  const std::vector<Case> cases = {
      {640, 480, ColorSpace::kI420, 460800},
      {640, 480, ColorSpace::kYuy2, 614400},
      {640, 480, ColorSpace::kArgb32, 1228800},
      {1, 1, ColorSpace::kI420, 3},
      {1, 1, ColorSpace::kYuy2, 4},
      {1, 1, ColorSpace::kArgb32, 4},
      {17, 15, ColorSpace::kI420, 399},
      {17, 15, ColorSpace::kYuy2, 540},
      {17, 15, ColorSpace::kArgb32, 1020},
      {4096, 4096, ColorSpace::kArgb32, 67108864},
  };
  for (const Case& c : cases) {
    VideoFrame frame;
    ASSERT_TRUE(frame.AllocBuffer(c.width, c.height, c.layout));
    EXPECT_EQ(frame.size, c.size);
    EXPECT_EQ(frame.width, c.width);
    EXPECT_EQ(frame.height, c.height);
    EXPECT_EQ(frame.colorSpace, c.layout);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(frame.data) % 64, 0U);
    frame.data[0] = 1;
    frame.data[frame.size - 1] = 1;
  }
}

TEST(VideoFrame, RejectsUnknownLayoutsAndInvalidSizes) {
  VideoFrame frame;
  EXPECT_FALSE(frame.AllocBuffer(640, 480, static_cast<ColorSpace>(0)));
  EXPECT_FALSE(frame.AllocBuffer(640, 480, static_cast<ColorSpace>(2)));
  EXPECT_FALSE(frame.AllocBuffer(640, 480, static_cast<ColorSpace>(0xFFFFFFFF)));
  for (const ColorSpace layout : {ColorSpace::kI420, ColorSpace::kYuy2, ColorSpace::kArgb32}) {
    EXPECT_FALSE(frame.AllocBuffer(0, 480, layout));
    EXPECT_FALSE(frame.AllocBuffer(640, 0, layout));
    EXPECT_FALSE(frame.AllocBuffer(0xFFFFFFFF, 0xFFFFFFFF, layout));
    EXPECT_FALSE(frame.AllocBuffer(65536, 65536, layout));
    // The product of the sides overflows 64 bits to a small number.
    EXPECT_FALSE(frame.AllocBuffer(2147527648, 2147439649, layout));
    EXPECT_FALSE(frame.AllocBuffer(0x80000000, 0x80000000, layout));
    EXPECT_FALSE(frame.AllocBuffer(1, 0xFFFFFFFF, layout));
    EXPECT_FALSE(frame.AllocBuffer(0x80000000, 1, layout));
  }
  EXPECT_EQ(frame.data, nullptr);
  EXPECT_EQ(frame.size, 0U);
}

TEST(VideoFrame, CanBeReallocatedAndReleasedRepeatedly) {
  VideoFrame frame;
  frame.ReleaseBuffer();
  EXPECT_TRUE(frame.AllocBuffer(16, 16, ColorSpace::kYuy2));
  frame.ReleaseBuffer();
  EXPECT_EQ(frame.data, nullptr);
  EXPECT_EQ(frame.size, 0U);
  EXPECT_EQ(frame.width, 0U);
  EXPECT_EQ(frame.height, 0U);
  EXPECT_TRUE(frame.AllocBuffer(32, 32, ColorSpace::kYuy2));
  EXPECT_EQ(frame.size, 2048U);
  EXPECT_FALSE(frame.AllocBuffer(0, 0, ColorSpace::kYuy2));
  EXPECT_EQ(frame.data, nullptr);
  frame.ReleaseBuffer();
  frame.ReleaseBuffer();
}

TEST(PacketMemory, ReusesTheBlockOfADestroyedPacket) {
  const void* block = nullptr;
  std::uint32_t capacity = 0;
  {
    AVEncodePacket packet;
    ASSERT_TRUE(encoder::Reserve(packet, 100'000));
    block = packet.data;
    capacity = packet.capacity;
  }
  for (const std::uint32_t bytes : {100'000U, 1U, capacity}) {
    AVEncodePacket packet;
    ASSERT_TRUE(encoder::Reserve(packet, bytes));
    EXPECT_EQ(packet.data, block);
    EXPECT_GE(packet.capacity, bytes);
    EXPECT_EQ(packet.length, 0U);
  }
}

TEST(PacketMemory, DoesNotShareBlocksBetweenLivePackets) {
  std::array<AVEncodePacket, 8> packets;
  for (AVEncodePacket& packet : packets) {
    ASSERT_TRUE(encoder::Reserve(packet, 5000));
    std::fill_n(packet.data, 5000, static_cast<std::uint8_t>(&packet - packets.data()));
  }
  for (const AVEncodePacket& packet : packets) {
    EXPECT_EQ(packet.data[0], &packet - packets.data());
    EXPECT_EQ(packet.data[4999], &packet - packets.data());
  }
}

TEST(PacketMemory, KeepsTheFourLargestFreeBlocks) {
  constexpr std::uint32_t kMiB = 1U << 20;
  {
    std::array<AVEncodePacket, 5> packets;
    for (std::size_t i = 0; i < packets.size(); ++i) {
      ASSERT_TRUE(encoder::Reserve(packets[i], kMiB << ((i + 2) % packets.size())));
    }
  }
  std::array<AVEncodePacket, 5> packets;
  std::vector<std::uint32_t> capacities;
  for (AVEncodePacket& packet : packets) {
    ASSERT_TRUE(encoder::Reserve(packet, 1));
    capacities.push_back(packet.capacity);
  }
  EXPECT_THAT(capacities, ::testing::UnorderedElementsAre(16 * kMiB, 8 * kMiB, 4 * kMiB, 2 * kMiB, 4096));
}

TEST(PacketMemory, GrowsThePacketOnDemand) {
  AVEncodePacket packet;
  ASSERT_TRUE(encoder::Reserve(packet, 10));
  const std::uint32_t first = packet.capacity;
  ASSERT_TRUE(encoder::Reserve(packet, first + 1));
  EXPECT_GT(packet.capacity, first);
}

TEST(PacketMemory, LeavesThePacketEmptyIfTheSizeIsTooLarge) {
  AVEncodePacket packet;
  EXPECT_FALSE(encoder::Reserve(packet, 0xFFFFFFFF));
  EXPECT_EQ(packet.data, nullptr);
  EXPECT_EQ(packet.length, 0U);
}

}  // namespace
