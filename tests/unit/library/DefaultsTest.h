// The fixture of tests with the built-in logger, allocation, module and thread.
#pragma once

#include "support/LoadedLibrary.h"
#include "support/PlatformTest.h"

class Defaults : public PlatformTest {
 protected:
  void SetUp() override {
    PlatformTest::SetUp();
    ASSERT_EQ(library.Error(), "");
    ASSERT_EQ(library.GetCameraHandler(&handler), 0);
  }

  void TearDown() override {
    library.Unload();
    PlatformTest::TearDown();
  }

  void QueryAndOpen() {
    NUVEQCameraCapabilities* records = nullptr;
    std::uint32_t count = 0;
    ASSERT_EQ(handler.GetCapability(&records, &count), 0);
    handler.ReleaseCapability(0, records, count);
    const NUVEQCameraParam param{"0", 1, 640, 480, 30};
    // An open asks for the camera's current format and never gives the structure back.
    ExpectLeft("current media type");
    ASSERT_EQ(handler.OpenCameraDevice(&param), 0);
  }

  LoadedLibrary library{NUVEQ_LIBRARY_FILE};
  NUVEQCameraHandler handler{};
};
