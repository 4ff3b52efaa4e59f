// Checks that packets are whole access units, as the library promises.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "camera/Capabilities.h"
#include "picture/Picture.h"
#include "recording/AnnexB.h"

namespace nuveqcam {

// The number of frames from one key frame to the next at a requested rate; 0: only the first frame is one.
std::uint32_t KeyFrameInterval(std::uint32_t fps);

// What is wrong with the NAL units of an access unit, human-readable; empty for one picture that starts with
// a start code, with parameter sets before an IDR picture. Does not decode the picture.
std::string StructureFault(ByteView accessUnit);

struct AccessUnitSummary {
  std::uint64_t faulty = 0;     // number of packets with a fault
  std::string firstFault;       // human-readable: "packet 12: 2 pictures"; packets are counted from 0
  std::optional<Size> picture;  // of the first decoded picture
};

// Checks the packets of one session in order: their structure, that key frames come where they are due, and
// that each packet decodes to one picture of constant size.
class AccessUnitChecker {
 public:
  // Throws Failure (kUnexpected) if the decoder cannot be started.
  explicit AccessUnitChecker(std::uint32_t fps) : m_keyFrameInterval(KeyFrameInterval(fps)) {}

  void Check(const Packet& packet);
  const AccessUnitSummary& Summary() const { return m_summary; }

 private:
  std::string FaultOf(const Packet& packet);

  const std::uint32_t m_keyFrameInterval;
  PictureDecoder m_decoder;
  std::uint64_t m_count = 0;
  AccessUnitSummary m_summary;
};

}  // namespace nuveqcam
