// Turns the frames of a camera into what a sink asks for.
#pragma once

#include <memory>

#include "graph/VideoFormat.h"

class FrameConverter {
 public:
  FrameConverter() = default;
  FrameConverter(const FrameConverter&) = delete;
  FrameConverter& operator=(const FrameConverter&) = delete;
  virtual ~FrameConverter() = default;

  struct Picture {
    std::uint8_t* data = nullptr;  // the converter's, until its next call
    std::size_t size = 0;          // bytes
  };
  // False for a frame that cannot be converted: it is to be dropped.
  virtual bool Convert(const std::uint8_t* data, std::size_t size, Picture& picture) = 0;
};

// The way from a camera's format to a subtype (all zero: any). S_OK with a null converter: frames go through
// as they are. VFW_E_CANNOT_CONNECT: there is no way.
HRESULT FindConversion(const VideoFormat& from, REFGUID wanted, std::unique_ptr<FrameConverter>& converter);
