// The camera: dispatches the host's USB requests to the control pipe and to the streams.
#pragma once

#include <poll.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

#include "ControlPipe.h"
#include "EventLog.h"
#include "RedirLink.h"
#include "VideoStream.h"

namespace uvc {

class Camera final : private RedirDevice {
 public:
  Camera(FileDescriptor socket, const CameraModel& model, EventLog& log);

  // Runs until the virtual machine closes the connection, the descriptor stop becomes readable, or the camera
  // unplugs itself.
  void Run(int stop);

 private:
  void OnHello() override;
  void OnReset() override;
  std::optional<Bytes> OnControl(const Setup& setup, std::span<const std::uint8_t> data) override;
  bool OnSetConfiguration(std::uint8_t configuration) override;
  std::uint8_t OnGetConfiguration() override { return m_pipe.Configuration(); }
  bool OnSetInterface(std::uint8_t interface, std::uint8_t alternate) override;
  bool OnBulk(std::uint64_t id, std::uint8_t endpoint, std::size_t length) override;
  std::optional<std::uint8_t> OnCancel(std::uint64_t id) override;

  FunctionCallbacks CallbacksOf(std::size_t function);
  std::vector<FunctionCallbacks> AllCallbacks();
  std::optional<VideoStream::Clock::time_point> Deadline() const;
  void Tick();
  bool IsUnplugged() const;
  void StopStreams();
  void SendAnswers();
  void Wait(std::span<pollfd> descriptors) const;

  const CameraModel& m_model;
  EventLog& m_log;
  std::vector<std::unique_ptr<VideoStream>> m_streams;  // one per function
  std::uint32_t m_startedStreams = 0;
  const VideoStream* m_latest = nullptr;  // started last
  ControlPipe m_pipe;
  RedirLink m_link;
};

}  // namespace uvc
