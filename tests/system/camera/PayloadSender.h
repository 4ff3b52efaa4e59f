// Splits frames into payloads for the bulk endpoint and answers the host's bulk requests with them.
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
    std::uint32_t time = 0;      // device clock
    std::uint16_t busFrame = 0;  // USB frame number (milliseconds), 11 bits
  };
  // The data for a request; valid until the next call of Next.
  struct Answer {
    std::uint64_t id = 0;
    std::span<const std::uint8_t> data;
  };

  explicit PayloadSender(std::function<ClockReading()> clock) : m_clock(std::move(clock)) {}

  // Starts a stream. Pending requests remain queued. maxPayload: bytes including the header, greater than
  // kHeaderSize.
  void Start(std::size_t maxPayload);
  // Drops the rest of the current frame. Returns whether a frame was incomplete.
  bool Stop();

  bool IsBusy() const { return !m_frame.empty(); }
  // Requires !IsBusy(). frame: not empty; must stay valid until IsBusy() returns false. captured: the capture
  // time by the device clock.
  void Send(std::span<const std::uint8_t> frame, std::uint32_t captured);
  std::uint64_t FramesSent() const { return m_framesSent; }

  void Request(std::uint64_t id, std::size_t length) { m_requests.push_back({id, length}); }
  // Returns false if the request is no longer pending.
  bool Cancel(std::uint64_t id);
  // Returns the answer to the oldest request, or nullopt if no request is pending or there is no data to
  // send.
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
  std::size_t m_maxPayload = kHeaderSize + 1;
  std::uint8_t m_frameId = 0;
  std::uint64_t m_framesSent = 0;

  std::span<const std::uint8_t> m_frame;
  std::size_t m_payloadBegin = 0;  // offset in the frame
  std::uint32_t m_captured = 0;
  std::array<std::uint8_t, kHeaderSize> m_header{};
  std::size_t m_payloadSize = 0;  // including the header
  std::size_t m_payloadSent = 0;
  std::vector<std::uint8_t> m_answer;
};

}  // namespace uvc
