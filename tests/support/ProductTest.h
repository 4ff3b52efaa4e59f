// Fixture for tests of the whole product: the library, loaded as a host loads it, with the Linux platform and
// the real encoder. Derived fixtures set up the PC and its camera.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "com/Com.h"
#include "devices/DeviceProvider.h"
#include "graph/StreamStats.h"
#include "simulated/NumberedPicture.h"
#include "support/HostCallbacks.h"
#include "support/LoadedLibrary.h"
#include "support/WaitFor.h"
#include "support/video/DecodedStream.h"

namespace support {

class ProductTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // Queries and releases the records.
  int Query();
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

  HostCallbacks& host = HostCallbacks::Get();
  NUVEQCameraHandler handler{};
  // Results of the last successful query.
  std::vector<std::string> cameraIds;
  std::vector<NUVEQResolution> resolutions;
  std::vector<std::uint32_t> rates;  // in thousandths of a frame per second

 private:
  std::unique_ptr<LoadedLibrary> m_library;
  std::uint64_t m_objects = 0;
  std::uint64_t m_blocks = 0;
  std::uint64_t m_opens = 0;  // opens that have got the camera's format
  bool m_isLoaded = false;
};

}  // namespace support

using support::ProductTest;
