#include "FuzzedFaults.h"

#include <new>
#include <utility>

namespace fuzz {

using scripted::Answer;

namespace {

constexpr int kThrows = -1;

// These functions of the encoder library may throw std::bad_alloc.
bool MayThrow(const std::string& operation) {
  return operation == "VideoEncoder::CreateDefaultEncoder" || operation == "VideoEncoder::Initialize" ||
         operation == "VideoFrame::AllocBuffer";
}

}  // namespace

void FuzzedFaults::Attach(scripted::Platform& platform) {
  platform.Decide([this](const std::string& operation) { return Decide(operation); });
}

void FuzzedFaults::Arm(ByteReader& reader) {
  constexpr std::array kKinds = {Kind::kFail,     Kind::kFalse,      Kind::kNull,
                                 Kind::kNoMemory, Kind::kWrongState, Kind::kThrow};
  const unsigned calls = reader.Byte() + 1U;
  m_armed.push_back({calls, reader.OneOf(kKinds)});
}

void FuzzedFaults::Disarm() {
  m_armed.clear();
  m_encodeResult = 0;
}

void FuzzedFaults::ChooseEncoding(ByteReader& reader) {
  constexpr std::array kResults = {0, 1, 5, kThrows};
  m_encodeResult = reader.OneOf(kResults);
}

// Called on the fuzzer's thread, except for the first two operations.
std::optional<Answer> FuzzedFaults::Decide(const std::string& operation) {
  if (operation.starts_with("AVEncodePacket")) {
    return std::nullopt;
  }
  if (operation == "VideoEncoder::Encode") {
    if (m_encodeResult == kThrows) {
      throw std::bad_alloc();
    }
    return Answer{m_encodeResult, false};
  }
  std::optional<Answer> answer;
  for (Armed& armed : m_armed) {
    if (armed.calls > 0 && --armed.calls == 0) {
      answer = FaultOf(armed.kind, operation);
    }
  }
  return answer;
}

Answer FuzzedFaults::FaultOf(Kind kind, const std::string& operation) {
  switch (kind) {
    case Kind::kFalse:
      return scripted::SFalse();
    case Kind::kNull:
      m_framesWithoutBuffer += operation == "VideoFrame::AllocBuffer" ? 1 : 0;
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

}  // namespace fuzz
