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

// Little endian, as everything on the bus.
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
  // The bytes as a descriptor: behind their length.
  Bytes Descriptor() const { return Writer().U8(m_bytes.size() + 1).Append(m_bytes).m_bytes; }
  const Bytes& Raw() const { return m_bytes; }

 private:
  Bytes m_bytes;
};

Bytes Device(const CameraModel& model) {
  return Writer()
      .U8(kDeviceDescriptor)
      .U16(0x0200)
      .U8(0xEF)  // a device of several functions, bound together by associations
      .U8(2)
      .U8(1)
      .U8(64)
      .U16(model.vendor)
      .U16(model.product)
      .U16(kDeviceVersion)
      .U8(1)  // the strings
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

Bytes VideoControl() {
  constexpr std::size_t kHeaderSize = 13;
  const Bytes camera = Writer()
                           .U8(kClassInterfaceDescriptor)
                           .U8(2)  // input terminal
                           .U8(kCameraTerminal)
                           .U16(0x0201)
                           .U8(0)
                           .U8(0)
                           .U16(0)  // no zoom lens
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
                           .U8(kStreamInterface)
                           .Descriptor();
  return Writer().Append(header).Append(camera).Append(processing).Append(output).Raw();
}

Bytes Format(const StreamFormat& format, std::size_t index) {
  // YUY2 as a GUID.
  static constexpr std::array<std::uint8_t, 16> kYuy2{'Y',  'U',  'Y', '2',  0,    0,    0x10, 0,
                                                      0x80, 0x00, 0,   0xAA, 0x00, 0x38, 0x9B, 0x71};
  Writer writer;
  writer.U8(kClassInterfaceDescriptor);
  if (format.fourCc == kYuyv) {
    writer.U8(4).U8(index).U8(format.sizes.size()).Append({kYuy2.begin(), kYuy2.end()}).U8(16);
  } else {
    writer.U8(6).U8(index).U8(format.sizes.size()).U8(0);
  }
  // The first frame is the default; no fixed shape, no interlacing, no protection.
  return writer.U8(1).U8(0).U8(0).U8(0).U8(0).Descriptor();
}

Bytes Frame(const StreamFormat& format, const FrameSize& size, std::size_t index) {
  const auto bitRate = [&](std::uint32_t interval) {
    return std::size_t{8} * size.LargestFrame() * kUnitsInSecond / interval;
  };
  Writer writer;
  writer.U8(kClassInterfaceDescriptor)
      .U8(format.fourCc == kYuyv ? 5 : 7)
      .U8(index)
      .U8(0)
      .U16(size.width)
      .U16(size.height)
      .U32(bitRate(size.intervals.back()))
      .U32(bitRate(size.intervals.front()))
      .U32(size.LargestFrame())
      .U32(size.defaultInterval)
      .U8(size.intervals.size());
  for (const std::uint32_t interval : size.intervals) {
    writer.U32(interval);
  }
  return writer.Descriptor();
}

// BT.709 primaries and transfer, the matrix of BT.601.
Bytes ColourMatching() {
  return Writer().U8(kClassInterfaceDescriptor).U8(0x0D).U8(1).U8(1).U8(4).Descriptor();
}

Bytes VideoStreaming(const CameraModel& model) {
  Writer formats;
  for (std::size_t i = 0; i < model.formats.size(); ++i) {
    const StreamFormat& format = model.formats[i];
    formats.Append(Format(format, i + 1));
    for (std::size_t j = 0; j < format.sizes.size(); ++j) {
      formats.Append(Frame(format, format.sizes[j], j + 1));
    }
    formats.Append(ColourMatching());
  }
  Writer header;
  header.U8(kClassInterfaceDescriptor)
      .U8(1)
      .U8(model.formats.size())
      .U16(13 + model.formats.size() + formats.Raw().size())
      .U8(kStreamEndpoint)
      .U8(0)
      .U8(kOutputTerminal)
      .U8(0)  // no still pictures, no trigger
      .U8(0)
      .U8(0)
      .U8(1);
  for (std::size_t i = 0; i < model.formats.size(); ++i) {
    header.U8(0);
  }
  return Writer().Append(header.Descriptor()).Append(formats.Raw()).Raw();
}

Bytes Interface(std::uint8_t number, std::size_t endpoints, std::size_t subclass) {
  return Writer()
      .U8(kInterfaceDescriptor)
      .U8(number)
      .U8(0)
      .U8(endpoints)
      .U8(kVideoClass)
      .U8(subclass)
      .U8(0)
      .U8(kNameString)
      .Descriptor();
}

Bytes Configuration(const CameraModel& model, std::uint8_t type, Speed speed) {
  const Bytes association = Writer()
                                .U8(kInterfaceAssociationDescriptor)
                                .U8(kControlInterface)
                                .U8(2)
                                .U8(kVideoClass)
                                .U8(3)
                                .U8(0)
                                .U8(kNameString)
                                .Descriptor();
  const Bytes endpoint = Writer()
                             .U8(kEndpointDescriptor)
                             .U8(kStreamEndpoint)
                             .U8(2)  // bulk
                             .U16(BulkPacketSize(speed))
                             .U8(0)
                             .Descriptor();
  const Bytes body = Writer()
                         .Append(association)
                         .Append(Interface(kControlInterface, 0, 1))
                         .Append(VideoControl())
                         .Append(Interface(kStreamInterface, 1, 2))
                         .Append(VideoStreaming(model))
                         .Append(endpoint)
                         .Raw();
  const Bytes header = Writer()
                           .U8(type)
                           .U16(9 + body.size())
                           .U8(2)
                           .U8(kConfiguration)
                           .U8(0)
                           .U8(0x80)  // powered by the bus
                           .U8(250)   // 500 mA
                           .Descriptor();
  return Writer().Append(header).Append(body).Raw();
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
      return std::nullopt;
  }
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
