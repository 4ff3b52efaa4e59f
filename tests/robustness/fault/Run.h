// The steps of a host, performed with the library or with the reference model.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace fault {

// The size and rate of every open.
inline constexpr std::uint32_t kWidth = 64;
inline constexpr std::uint32_t kHeight = 48;
inline constexpr std::uint32_t kFps = 30;
// Value of the host's count before a query.
inline constexpr std::uint32_t kNoCount = 99;

// Size of the scripted encoder's packets in bytes.
inline constexpr std::size_t kPacketSize = 8;
// Text for a packet that the data callback received.
inline std::string DescribePacket(std::size_t size) { return "packet of " + std::to_string(size) + " bytes"; }

class Run {
 public:
  Run() = default;
  Run(const Run&) = delete;
  Run& operator=(const Run&) = delete;
  virtual ~Run() = default;

  // Loads the library and registers the callbacks.
  virtual void Load() = 0;
  virtual void Query() = 0;
  // Releases the records of the last query, if there are any.
  virtual void Release() = 0;
  virtual void Open() = 0;
  // Delivers frames, at most until one has to wait for a buffer.
  virtual void DeliverFrames(unsigned count) = 0;
  virtual void Close() = 0;
  virtual void Unload() = 0;
};

}  // namespace fault
