// What the scripted platform's calls answer in a session that the fuzzer makes up.
#pragma once

#include <atomic>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ByteReader.h"
#include "support/scripted/ScriptedPlatform.h"

class Faults {
 public:
  // The platform asks here from now on, until it is reset. This has to live until then.
  void Attach(scripted::Platform& platform);
  // The call of that number from now goes wrong, in a way that the bytes choose.
  void Arm(ByteReader& reader);
  void Disarm();
  // How encoding a frame ends from now on.
  void ChooseEncoding(ByteReader& reader);

  bool EncodesWell() const { return m_encoding == 0; }
  // Frames that have no memory, since the latest call.
  unsigned TakeFramesWithoutMemory() { return std::exchange(m_withoutMemory, 0U); }

 private:
  enum class Kind { kFail, kFalse, kNull, kNoMemory, kWrongState, kThrow };
  struct Armed {
    unsigned calls;
    Kind kind;
  };

  std::optional<scripted::Answer> Decide(const std::string& operation);
  scripted::Answer AnswerOf(Kind kind, const std::string& operation);

  std::vector<Armed> m_armed;
  unsigned m_withoutMemory = 0;
  std::atomic<int> m_encoding = 0;  // read by the encoder thread
};
