#include "support/ProductTest.h"

namespace support {

void ProductTest::SetUp() {
  m_objects = com::LiveObjects();
  m_blocks = com::LiveTaskBlocks();
  host.Reset();
  ASSERT_NO_FATAL_FAILURE(Load());
  m_isLoaded = true;
}

void ProductTest::TearDown() {
  Close();
  Unload();
  EXPECT_FALSE(IsMapped());
  EXPECT_EQ(com::LiveObjects(), m_objects);
  // Each open leaks the structure of the camera's format, but not its contents.
  EXPECT_EQ(com::LiveTaskBlocks(), m_blocks + m_opens);
  host.Reset();
}

void ProductTest::Unload() {
  m_isLoaded = false;
  HostTest::Unload();
}

int ProductTest::Open(std::uint32_t width, std::uint32_t height, std::uint32_t fps, const std::string& id) {
  const int result = HostTest::Open(width, height, fps, id);
  m_opens += result == 0 ? 1 : 0;
  return result;
}

int ProductTest::Close(const std::string& id) const { return m_isLoaded ? HostTest::Close(id) : 0; }

void ProductTest::Record(std::uint32_t width, std::uint32_t height, std::uint32_t fps,
                         std::uint64_t packets) {
  ASSERT_EQ(Query(), 0);
  ASSERT_EQ(Open(width, height, fps), 0);
  EXPECT_TRUE(host.WaitForPackets(packets));
  EXPECT_EQ(Close(), 1);
}

std::vector<video::Bytes> ProductTest::PacketBytes() const {
  std::vector<video::Bytes> bytes;
  for (Packet& packet : host.Packets()) {
    bytes.push_back(std::move(packet.bytes));
  }
  return bytes;
}

std::uint32_t ProductTest::NumberIn(const video::Yuv& picture) {
  return simulated::ReadFrameNumber(picture.y.data(), picture.width, picture.width, picture.height)
      .value_or(simulated::kFrameNumberMask + 1);
}

void ProductTest::ExpectNumbersFrom(std::uint32_t first) {
  const std::vector<video::Bytes> packets = PacketBytes();
  const video::Decoded decoded = video::Decode(packets);
  EXPECT_EQ(decoded.errors, 0);
  ASSERT_EQ(decoded.pictures.size(), packets.size());
  for (std::uint32_t i = 0; i < decoded.pictures.size(); ++i) {
    EXPECT_EQ(NumberIn(decoded.pictures[i]), first + i);
  }
}

}  // namespace support
