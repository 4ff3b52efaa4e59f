// Frames as the payloads of the bulk endpoint, in the pieces that the host asks for.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <span>
#include <vector>

namespace uvc {

// The bits of a payload header.
enum HeaderBit : std::uint8_t {
  kFrameId = 0x01,
  kEndOfFrame = 0x02,
  kHasPts = 0x04,
  kHasScr = 0x08,
  kEndOfHeader = 0x80,
};

class PayloadSender {
 public:
  static constexpr std::size_t kHeaderSize = 12;

  struct ClockReading {
    std::uint32_t time = 0;      // of the camera's own clock
    std::uint16_t busFrame = 0;  // the bus's count of milliseconds, 11 bits
  };
  // What goes back for a request; valid until the next call of Next.
  struct Answer {
    std::uint64_t id = 0;
    std::span<const std::uint8_t> data;
  };

  explicit PayloadSender(std::function<ClockReading()> clock) : m_clock(std::move(clock)) {}

  // Begins a stream whose payloads have at most so many bytes, more than those of a header. Requests that
  // wait are for it.
  void Start(std::size_t largestPayload);
  // Drops what has not been sent. True when there was a frame of which a part had not.
  bool Stop();

  bool IsBusy() const { return !m_frame.empty(); }
  // Only when not busy. The bytes, at least one, stay until it is not busy any more. captured: the picture's
  // time by the camera's clock.
  void Send(std::span<const std::uint8_t> frame, std::uint32_t captured);
  std::uint64_t FramesSent() const { return m_framesSent; }

  void Request(std::uint64_t id, std::size_t length) { m_requests.push_back({id, length}); }
  // False when there is no such request any more.
  bool Cancel(std::uint64_t id);
  // The answer to the oldest request; nothing when there is none or nothing to send.
  std::optional<Answer> Next();

 private:
  struct BulkRequest {
    std::uint64_t id = 0;
    std::size_t length = 0;
  };

  void BeginPayload();
  void EndPayload();
  void AppendToAnswer(std::size_t size);

  const std::function<ClockReading()> m_clock;
  std::deque<BulkRequest> m_requests;
  std::size_t m_largestPayload = kHeaderSize + 1;
  std::uint8_t m_frameId = 0;
  std::uint64_t m_framesSent = 0;

  std::span<const std::uint8_t> m_frame;
  std::size_t m_payloadBegin = 0;  // in the frame
  std::uint32_t m_captured = 0;
  std::array<std::uint8_t, kHeaderSize> m_header{};
  std::size_t m_payloadSize = 0;  // with its header
  std::size_t m_payloadSent = 0;
  std::vector<std::uint8_t> m_answer;
};

}  // namespace uvc
