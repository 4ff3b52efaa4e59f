#include "support/PlatformTest.h"

namespace support {

std::vector<std::uint8_t> Frame(std::size_t size, std::uint8_t value) {
  std::vector<std::uint8_t> frame(size, value);
  return frame;
}

void PlatformTest::SetUp() { platform.Reset(scripted::LaptopPc()); }

void PlatformTest::TearDown() {
  EXPECT_THAT(platform.Alive(), ::testing::UnorderedElementsAreArray(m_left));
  EXPECT_THAT(platform.Misuse(), ::testing::IsEmpty());
  platform.DisposeOfAll();
}

}  // namespace support
