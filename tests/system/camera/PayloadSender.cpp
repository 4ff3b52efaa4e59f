#include "PayloadSender.h"

#include <algorithm>

namespace uvc {
namespace {

constexpr std::size_t kMinPacketSize = 64;

template <typename Value>
void Put(std::uint8_t* at, Value value) {
  for (std::size_t i = 0; i < sizeof(value); ++i) {
    at[i] = static_cast<std::uint8_t>(value >> (8 * i));
  }
}

}  // namespace

void PayloadSender::Start(std::size_t maxPayload) {
  Stop();
  m_maxPayload = maxPayload;
  m_framesSent = 0;
}

bool PayloadSender::Stop() {
  const bool wasBusy = IsBusy();
  if (wasBusy) {
    m_frame = {};
    m_frameId ^= kFrameId;
  }
  return wasBusy;
}

void PayloadSender::Send(std::span<const std::uint8_t> frame, std::uint32_t captured) {
  m_frame = frame;
  m_captured = captured;
  m_payloadBegin = 0;
  BeginPayload();
}

void PayloadSender::BeginPayload() {
  const std::size_t left = m_frame.size() - m_payloadBegin;
  std::size_t size = std::min(left, m_maxPayload - kHeaderSize);
  // A payload of whole packets may need a zero-length packet at its end. uvcvideo does not recognize that as
  // the end of the payload while it has no buffer, and then drops the next frames without counting them.
  if (kHeaderSize + size < m_maxPayload && (kHeaderSize + size) % kMinPacketSize == 0) {
    --size;
  }
  m_payloadSize = kHeaderSize + size;
  m_payloadSent = 0;
  const ClockReading now = m_clock();
  m_header[0] = kHeaderSize;
  m_header[1] = static_cast<std::uint8_t>(kEndOfHeader | kHasScr | kHasPts | m_frameId |
                                          (size == left ? kEndOfFrame : 0));
  Put(&m_header[2], m_captured);
  Put(&m_header[6], now.time);
  Put(&m_header[10], static_cast<std::uint16_t>(now.busFrame & 0x7FFU));
}

void PayloadSender::EndPayload() {
  m_payloadBegin += m_payloadSize - kHeaderSize;
  if (m_payloadBegin < m_frame.size()) {
    BeginPayload();
    return;
  }
  m_frame = {};
  m_frameId ^= kFrameId;
  ++m_framesSent;
}

bool PayloadSender::Cancel(std::uint64_t id) {
  return std::erase_if(m_requests, [id](const BulkRequest& request) { return request.id == id; }) != 0;
}

void PayloadSender::AppendToAnswer(std::size_t size) {
  const auto offset = [](std::size_t bytes) { return static_cast<std::ptrdiff_t>(bytes); };
  const std::size_t end = m_payloadSent + size;
  if (m_payloadSent < kHeaderSize) {
    m_answer.insert(m_answer.end(), m_header.begin() + offset(m_payloadSent),
                    m_header.begin() + offset(std::min(end, kHeaderSize)));
    m_payloadSent = std::min(end, kHeaderSize);
  }
  if (m_payloadSent == end) {
    return;
  }
  const auto data = m_frame.subspan(m_payloadBegin + m_payloadSent - kHeaderSize, end - m_payloadSent);
  m_answer.insert(m_answer.end(), data.begin(), data.end());
  m_payloadSent = end;
}

std::optional<PayloadSender::Answer> PayloadSender::Next() {
  if (!IsBusy() || m_requests.empty()) {
    return std::nullopt;
  }
  const BulkRequest request = m_requests.front();
  m_requests.pop_front();
  m_answer.clear();
  AppendToAnswer(std::min(request.length, m_payloadSize - m_payloadSent));
  // A payload of the maximum size ends with its last byte, a smaller one with a short packet. If the
  // remaining bytes filled the request exactly, the next answer is empty.
  if (m_payloadSent == m_payloadSize && (m_answer.size() < request.length || m_payloadSize == m_maxPayload)) {
    EndPayload();
  }
  return Answer{request.id, m_answer};
}

}  // namespace uvc
