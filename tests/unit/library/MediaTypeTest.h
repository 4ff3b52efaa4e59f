// Fixture for tests that read the media types of a camera.
#pragma once

#include <utility>
#include <vector>

#include "support/CameraOperatorTest.h"

class MediaTypes : public support::CameraOperatorTest {
 protected:
  using Pairs = std::vector<std::pair<int, int>>;

  // Reads the capabilities of a PC whose camera has these pins.
  bool Read(std::vector<scripted::Pin> pins) {
    platform.SetPc(
        {{{0, scripted::kBuiltInId}}, {{"built-in", scripted::kBuiltInDisplayName, std::move(pins)}}});
    EXPECT_EQ(camera->CameraCount(), 1U);
    platform.ClearJournal();
    return camera->GetCameraCapabilities(0, sizes, subTypes, fpsList);
  }
  bool Read(std::vector<scripted::MediaType> types) {
    return Read({{"capture", PINDIR_OUTPUT, std::move(types)}});
  }

  std::vector<std::pair<int, int>> Sizes() const {
    std::vector<std::pair<int, int>> pairs;
    for (const tagSIZE& size : sizes) {
      pairs.emplace_back(size.cx, size.cy);
    }
    return pairs;
  }

  std::vector<tagSIZE> sizes;
  std::vector<GUID> subTypes;
  std::vector<unsigned int> fpsList;
};
