#include "FuzzedFaults.h"

#include <new>
#include <utility>

using scripted::Answer;

namespace {

constexpr int kThrows = -1;

// The encoder library is C++, and these can run out of memory.
bool MayThrow(const std::string& operation) {
  return operation == "VideoEncoder::CreateDefaultEncoder" || operation == "VideoEncoder::Initialize" ||
         operation == "VideoFrame::AllocBuffer";
}

}  // namespace

void Faults::Attach(scripted::Platform& platform) {
  platform.Decide([this](const std::string& operation) { return Decide(operation); });
}

void Faults::Arm(ByteReader& reader) {
  constexpr std::array kKinds = {Kind::kFail,     Kind::kFalse,      Kind::kNull,
                                 Kind::kNoMemory, Kind::kWrongState, Kind::kThrow};
  const unsigned calls = reader.Byte() + 1U;
  m_armed.push_back({calls, reader.OneOf(kKinds)});
}

void Faults::Disarm() {
  m_armed.clear();
  m_encoding = 0;
}

void Faults::ChooseEncoding(ByteReader& reader) {
  constexpr std::array kResults = {0, 1, 5, kThrows};
  m_encoding = reader.OneOf(kResults);
}

// But for the two first operations, on the fuzzer's own thread.
std::optional<Answer> Faults::Decide(const std::string& operation) {
  if (operation.starts_with("AVEncodePacket")) {
    return std::nullopt;
  }
  if (operation == "VideoEncoder::Encode") {
    if (m_encoding == kThrows) {
      throw std::bad_alloc();
    }
    return Answer{m_encoding, false};
  }
  std::optional<Answer> answer;
  for (Armed& armed : m_armed) {
    if (armed.calls > 0 && --armed.calls == 0) {
      answer = AnswerOf(armed.kind, operation);
    }
  }
  return answer;
}

Answer Faults::AnswerOf(Kind kind, const std::string& operation) {
  switch (kind) {
    case Kind::kFalse:
      return scripted::SFalse();
    case Kind::kNull:
      m_withoutMemory += operation == "VideoFrame::AllocBuffer" ? 1 : 0;
      return scripted::SucceedsWithNull();
    case Kind::kNoMemory:
      return scripted::Fails(E_OUTOFMEMORY);
    case Kind::kWrongState:
      return scripted::Fails(VFW_E_WRONG_STATE);
    case Kind::kThrow:
      if (MayThrow(operation)) {
        throw std::bad_alloc();
      }
      return scripted::Fails();
    case Kind::kFail:
      break;
  }
  return scripted::Fails();
}
