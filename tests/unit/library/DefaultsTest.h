// Fixture for tests with the default logger, allocation, module and thread functions.
#pragma once

#include "support/LoadedLibrary.h"
#include "support/PlatformTest.h"

class Defaults : public support::PlatformTest {
 protected:
  void SetUp() override {
    support::PlatformTest::SetUp();
    ASSERT_EQ(library.Error(), "");
    ASSERT_EQ(library.GetCameraHandler(&handler), 0);
  }

  void TearDown() override {
    library.Unload();
    support::PlatformTest::TearDown();
  }

  void Query() const {
    NUVEQCameraCapabilities* records = nullptr;
    std::uint32_t count = 0;
    ASSERT_EQ(handler.GetCapability(&records, &count), 0);
    handler.ReleaseCapability(0, records, count);
  }
  int Open() const {
    const NUVEQCameraParam param{"0", 1, 640, 480, 30};
    return handler.OpenCameraDevice(&param);
  }
  int Close() const { return handler.CloseCameraDevice("0", 1); }
  void QueryAndOpen() {
    ASSERT_NO_FATAL_FAILURE(Query());
    // Each open gets the camera's current format and does not free the structure.
    ExpectLeft("current media type");
    ASSERT_EQ(Open(), 0);
  }

  support::LoadedLibrary library{NUVEQ_LIBRARY_FILE};
  NUVEQCameraHandler handler{};
};
