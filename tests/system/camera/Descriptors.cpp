#include "Descriptors.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

namespace uvc {
namespace {

constexpr std::uint8_t kVideoClass = 0x0E;
constexpr std::uint8_t kCameraTerminal = 1;
constexpr std::uint8_t kOutputTerminal = 3;
constexpr std::uint8_t kNameString = 2;
constexpr std::uint8_t kFunctionStrings = 4;  // string index of the first function's name

// Descriptor subtypes of a streaming interface.
struct StreamSubtypes {
  std::uint8_t format = 0;
  std::uint8_t frame = 0;
};

constexpr StreamSubtypes SubtypesOf(FormatKind kind) {
  switch (kind) {
    case FormatKind::kUncompressed:
      return {4, 5};
    case FormatKind::kMjpeg:
      return {6, 7};
    case FormatKind::kFrameBased:
      return {0x10, 0x11};
  }
  return {};
}

// Builds descriptors in little-endian byte order.
class Writer {
 public:
  Writer& U8(std::size_t value) {
    m_bytes.push_back(static_cast<std::uint8_t>(value));
    return *this;
  }
  Writer& U16(std::size_t value) { return U8(value & 0xFF).U8(value >> 8 & 0xFF); }
  Writer& U32(std::size_t value) { return U16(value & 0xFFFF).U16(value >> 16 & 0xFFFF); }
  Writer& Append(const Bytes& bytes) {
    m_bytes.insert(m_bytes.end(), bytes.begin(), bytes.end());
    return *this;
  }
  // Returns the bytes as a descriptor, with the length in front.
  Bytes Descriptor() const { return Writer().U8(m_bytes.size() + 1).Append(m_bytes).m_bytes; }
  const Bytes& Raw() const { return m_bytes; }

 private:
  Bytes m_bytes;
};

Bytes Device(const CameraModel& model) {
  return Writer()
      .U8(kDeviceDescriptor)
      .U16(0x0200)
      .U8(0xEF)  // multi-interface function device with interface association descriptors
      .U8(2)
      .U8(1)
      .U8(64)
      .U16(model.vendor)
      .U16(model.product)
      .U16(kDeviceVersion)
      .U8(1)  // string indexes
      .U8(kNameString)
      .U8(3)
      .U8(1)
      .Descriptor();
}

Bytes Qualifier() {
  return Writer().U8(kQualifierDescriptor).U16(0x0200).U8(0xEF).U8(2).U8(1).U8(64).U8(1).U8(0).Descriptor();
}

Bytes String(std::string_view text) {
  Writer writer;
  writer.U8(kStringDescriptor);
  for (const char c : text) {
    writer.U16(static_cast<unsigned char>(c));
  }
  return writer.Descriptor();
}

Bytes VideoControl(std::size_t function) {
  constexpr std::size_t kHeaderSize = 13;
  const Bytes camera = Writer()
                           .U8(kClassInterfaceDescriptor)
                           .U8(2)  // input terminal
                           .U8(kCameraTerminal)
                           .U16(0x0201)
                           .U8(0)
                           .U8(0)
                           .U16(0)  // no optical zoom
                           .U16(0)
                           .U16(0)
                           .U8(3)
                           .U16(0)  // no controls
                           .U8(0)
                           .Descriptor();
  const Bytes processing = Writer()
                               .U8(kClassInterfaceDescriptor)
                               .U8(5)
                               .U8(kProcessingUnit)
                               .U8(kCameraTerminal)
                               .U16(0)
                               .U8(2)
                               .U16(1)  // brightness
                               .U8(0)
                               .U8(0)
                               .Descriptor();
  const Bytes output = Writer()
                           .U8(kClassInterfaceDescriptor)
                           .U8(3)
                           .U8(kOutputTerminal)
                           .U16(0x0101)
                           .U8(0)
                           .U8(kProcessingUnit)
                           .U8(0)
                           .Descriptor();
  const Bytes header = Writer()
                           .U8(kClassInterfaceDescriptor)
                           .U8(1)
                           .U16(0x0110)
                           .U16(kHeaderSize + camera.size() + processing.size() + output.size())
                           .U32(kClockFrequency)
                           .U8(1)
                           .U8(StreamInterface(function))
                           .Descriptor();
  return Writer().Append(header).Append(camera).Append(processing).Append(output).Raw();
}

Bytes Guid(std::uint32_t code) {
  return Writer().U32(code).U16(0).U16(0x10).Append({0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}).Raw();
}

Bytes Format(const StreamFormat& format, std::size_t index) {
  const PixelFormat& pixels = PixelFormatOf(format.fourCc);
  Writer writer;
  writer.U8(kClassInterfaceDescriptor).U8(SubtypesOf(pixels.kind).format).U8(index).U8(format.sizes.size());
  if (pixels.kind == FormatKind::kMjpeg) {
    writer.U8(0);
  } else {
    writer.Append(Guid(pixels.guidCode)).U8(pixels.bitsPerPixel);
  }
  // The first frame is the default; no aspect ratio, interlacing or copy protection.
  writer.U8(1).U8(0).U8(0).U8(0).U8(0);
  if (pixels.kind == FormatKind::kFrameBased) {
    writer.U8(1);  // bVariableSize
  }
  return writer.Descriptor();
}

Bytes Frame(const StreamFormat& format, const FrameSize& size, std::size_t index) {
  const FormatKind kind = PixelFormatOf(format.fourCc).kind;
  const auto bitRate = [&](std::uint32_t interval) {
    return std::size_t{8} * format.MaxFrameBytes(size) * kUnitsPerSecond / interval;
  };
  Writer writer;
  writer.U8(kClassInterfaceDescriptor)
      .U8(SubtypesOf(kind).frame)
      .U8(index)
      .U8(0)
      .U16(size.width)
      .U16(size.height)
      .U32(bitRate(size.intervals.back()))
      .U32(bitRate(size.intervals.front()));
  if (kind == FormatKind::kFrameBased) {
    // In this descriptor the number of intervals precedes the bytes per line, which are 0 for a compressed
    // format.
    writer.U32(size.defaultInterval).U8(size.intervals.size()).U32(0);
  } else {
    writer.U32(format.MaxFrameBytes(size)).U32(size.defaultInterval).U8(size.intervals.size());
  }
  for (const std::uint32_t interval : size.intervals) {
    writer.U32(interval);
  }
  return writer.Descriptor();
}

// BT.709 primaries and transfer, the matrix of BT.601.
Bytes ColourMatching() {
  return Writer().U8(kClassInterfaceDescriptor).U8(0x0D).U8(1).U8(1).U8(4).Descriptor();
}

Bytes VideoStreaming(const VideoFunction& function, std::uint8_t endpoint) {
  Writer formats;
  for (std::size_t i = 0; i < function.formats.size(); ++i) {
    const StreamFormat& format = function.formats[i];
    formats.Append(Format(format, i + 1));
    for (std::size_t j = 0; j < format.sizes.size(); ++j) {
      formats.Append(Frame(format, format.sizes[j], j + 1));
    }
    formats.Append(ColourMatching());
  }
  Writer header;
  header.U8(kClassInterfaceDescriptor)
      .U8(1)
      .U8(function.formats.size())
      .U16(13 + function.formats.size() + formats.Raw().size())
      .U8(endpoint)
      .U8(0)
      .U8(kOutputTerminal)
      .U8(0)  // no still image capture, no trigger
      .U8(0)
      .U8(0)
      .U8(1);
  for (std::size_t i = 0; i < function.formats.size(); ++i) {
    header.U8(0);
  }
  return Writer().Append(header.Descriptor()).Append(formats.Raw()).Raw();
}

Bytes Interface(std::uint8_t number, std::size_t endpoints, std::size_t subclass, std::size_t name) {
  return Writer()
      .U8(kInterfaceDescriptor)
      .U8(number)
      .U8(0)
      .U8(endpoints)
      .U8(kVideoClass)
      .U8(subclass)
      .U8(0)
      .U8(name)
      .Descriptor();
}

Bytes Function(const VideoFunction& function, std::size_t index, Speed speed) {
  const std::size_t name = kFunctionStrings + index;
  const Bytes association = Writer()
                                .U8(kInterfaceAssociationDescriptor)
                                .U8(ControlInterface(index))
                                .U8(2)
                                .U8(kVideoClass)
                                .U8(3)
                                .U8(0)
                                .U8(name)
                                .Descriptor();
  const Bytes endpoint = Writer()
                             .U8(kEndpointDescriptor)
                             .U8(StreamEndpoint(index))
                             .U8(2)  // bulk
                             .U16(BulkPacketSize(speed))
                             .U8(0)
                             .Descriptor();
  return Writer()
      .Append(association)
      .Append(Interface(ControlInterface(index), 0, 1, name))
      .Append(VideoControl(index))
      .Append(Interface(StreamInterface(index), 1, 2, name))
      .Append(VideoStreaming(function, StreamEndpoint(index)))
      .Append(endpoint)
      .Raw();
}

Bytes Configuration(const CameraModel& model, std::uint8_t type, Speed speed) {
  Writer functions;
  for (std::size_t i = 0; i < model.functions.size(); ++i) {
    functions.Append(Function(model.functions[i], i, speed));
  }
  const Bytes header = Writer()
                           .U8(type)
                           .U16(9 + functions.Raw().size())
                           .U8(2 * model.functions.size())
                           .U8(kConfiguration)
                           .U8(0)
                           .U8(0x80)  // bus-powered
                           .U8(250)   // 500 mA
                           .Descriptor();
  return Writer().Append(header).Append(functions.Raw()).Raw();
}

std::optional<Bytes> StringAt(const CameraModel& model, std::uint8_t index) {
  switch (index) {
    case 0:
      return Writer().U8(kStringDescriptor).U16(0x0409).Descriptor();
    case 1:
      return String(model.manufacturer);
    case kNameString:
      return String(model.name);
    case 3:
      return String(model.serial);
    default:
      break;
  }
  const std::size_t function = std::size_t{index} - kFunctionStrings;
  return function < model.functions.size() ? std::optional(String(model.functions[function].name))
                                           : std::nullopt;
}

}  // namespace

std::optional<Bytes> DescriptorOf(const CameraModel& model, std::uint8_t type, std::uint8_t index) {
  if (type == kStringDescriptor) {
    return StringAt(model, index);
  }
  if (index != 0) {
    return std::nullopt;
  }
  switch (type) {
    case kDeviceDescriptor:
      return Device(model);
    case kConfigurationDescriptor:
      return Configuration(model, type, model.speed);
    case kQualifierDescriptor:
      return Qualifier();
    case kOtherSpeedDescriptor:
      return Configuration(model, type, model.speed == Speed::kHigh ? Speed::kFull : Speed::kHigh);
    default:
      return std::nullopt;
  }
}

}  // namespace uvc
