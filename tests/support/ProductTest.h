// The fixture of tests with the whole product: the library, loaded as a platform loads it, over the Linux
// platform, and the real encoder. What the PC is, and who makes its camera's pictures, is said by who
// derives.
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

class ProductTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // Queries and releases the records.
  int Query();
  int Open(std::uint32_t width, std::uint32_t height, std::uint32_t fps, const std::string& id = "0");
  int Close(const std::string& id = "0") const;

  // Queries, opens, waits for that many packets, and closes.
  void Record(std::uint32_t width, std::uint32_t height, std::uint32_t fps, std::uint64_t packets);
  // The bytes of what has arrived since the host's last reset.
  std::vector<video::Bytes> PacketBytes() const;
  // What has arrived decodes to the frames from first on, each once and in order.
  void ExpectNumbersFrom(std::uint32_t first);
  // The frame number in a decoded picture; no number: an impossible one.
  static std::uint32_t NumberIn(const video::Yuv& picture);

  // An open failed after it had asked the camera for its format.
  void ExpectOneMoreBlock() { ++m_opens; }

  // Of this process.
  static long Threads();
  static long Descriptors();

  void Unload();

  HostCallbacks& host = HostCallbacks::Get();
  NUVEQCameraHandler handler{};
  // Of the latest query that succeeded.
  std::vector<std::string> cameraIds;
  std::vector<NUVEQResolution> resolutions;
  std::vector<std::uint32_t> rates;  // in thousandths

 private:
  std::unique_ptr<LoadedLibrary> m_library;
  std::uint64_t m_objects = 0;
  std::uint64_t m_blocks = 0;
  std::uint64_t m_opens = 0;  // that got as far as the format
  bool m_isLoaded = false;
};
