// Makes calls of the scripted platform fail as the fuzzer input says.
#pragma once

#include <atomic>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ByteReader.h"
#include "support/scripted/ScriptedPlatform.h"

namespace fuzz {

class FuzzedFaults {
 public:
  // Injects faults into the platform until it is reset. The platform keeps a reference to this object.
  void Attach(scripted::Platform& platform);
  // Schedules a fault: the input chooses its kind and the number of calls until it occurs.
  void Arm(ByteReader& reader);
  void Disarm();
  // Chooses the result of encoding a frame from now on.
  void ChooseEncoding(ByteReader& reader);

  bool EncodingSucceeds() const { return m_encodeResult == 0; }
  // Returns the number of frames allocated without a buffer since the previous call.
  unsigned TakeFramesWithoutBuffer() { return std::exchange(m_framesWithoutBuffer, 0U); }

 private:
  enum class Kind { kFail, kFalse, kNull, kNoMemory, kWrongState, kThrow };
  struct Armed {
    unsigned calls;
    Kind kind;
  };

  std::optional<scripted::Answer> Decide(const std::string& operation);
  scripted::Answer FaultOf(Kind kind, const std::string& operation);

  std::vector<Armed> m_armed;
  unsigned m_framesWithoutBuffer = 0;
  std::atomic<int> m_encodeResult = 0;  // read by the encoder thread
};

}  // namespace fuzz
