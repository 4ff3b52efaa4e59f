// Converts a camera's frames to the subtype that a sink requests.
#pragma once

#include <memory>

#include "graph/VideoFormat.h"

namespace graph {

class FrameConverter {
 public:
  FrameConverter() = default;
  FrameConverter(const FrameConverter&) = delete;
  FrameConverter& operator=(const FrameConverter&) = delete;
  virtual ~FrameConverter() = default;

  struct Picture {
    std::uint8_t* data = nullptr;  // owned by the converter, valid until its next call
    std::size_t size = 0;          // bytes
  };
  // Returns false for a frame that cannot be converted and must be dropped.
  virtual bool Convert(const std::uint8_t* data, std::size_t size, Picture& picture) = 0;
};

}  // namespace graph
