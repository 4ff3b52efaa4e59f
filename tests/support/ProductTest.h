// Fixture for tests of the whole product: the library, loaded as a host loads it, with the Linux platform and
// the real encoder. Derived fixtures set up the PC and its camera.
#pragma once

#include <string>
#include <vector>

#include "com/Com.h"
#include "devices/DeviceProvider.h"
#include "graph/StreamStats.h"
#include "simulated/NumberedPicture.h"
#include "support/HostTest.h"
#include "support/WaitFor.h"
#include "support/video/DecodedStream.h"

namespace support {

class ProductTest : public HostTest {
 protected:
  void SetUp() override;
  void TearDown() override;

  int Open(std::uint32_t width, std::uint32_t height, std::uint32_t fps, const std::string& id = "0");
  int Close(const std::string& id = "0") const;

  // Queries, opens, waits for the given number of packets and closes.
  void Record(std::uint32_t width, std::uint32_t height, std::uint32_t fps, std::uint64_t packets);
  // Returns the packets that have arrived since the last reset of the host.
  std::vector<video::Bytes> PacketBytes() const;
  // Expects that these packets decode to consecutive frame numbers from first on.
  void ExpectNumbersFrom(std::uint32_t first);
  // Returns the frame number in a decoded picture; an impossible number if there is none.
  static std::uint32_t NumberIn(const video::Yuv& picture);

  // Expects the block that an open leaks if it fails after it has got the camera's format.
  void ExpectOneMoreBlock() { ++m_opens; }

  void Unload();

 private:
  std::uint64_t m_objects = 0;
  std::uint64_t m_blocks = 0;
  std::uint64_t m_opens = 0;  // opens that have got the camera's format
  bool m_isLoaded = false;
};

}  // namespace support

using support::ProductTest;
