// The camera as it hangs on the link: what the host asks goes to the control pipe or to the stream.
#pragma once

#include <poll.h>

#include <string>

#include "ControlPipe.h"
#include "EventLog.h"
#include "RedirLink.h"
#include "VideoStream.h"

namespace uvc {

class Camera final : private RedirDevice {
 public:
  Camera(FileDescriptor socket, const CameraModel& model, EventLog& log);

  // Works until the machine hangs up or the other descriptor has something to read.
  void Run(int stop);

 private:
  void OnHello() override;
  void OnReset() override;
  std::optional<Bytes> OnControl(const Setup& setup, std::span<const std::uint8_t> data) override;
  bool OnSetConfiguration(std::uint8_t configuration) override;
  std::uint8_t OnGetConfiguration() override { return m_pipe.Configuration(); }
  bool OnSetInterface(std::uint8_t interface, std::uint8_t alternate) override;
  bool OnBulk(std::uint64_t id, std::uint8_t endpoint, std::size_t length) override;
  bool OnCancel(std::uint64_t id) override;

  void SendAnswers();
  void Wait(std::span<pollfd> descriptors) const;

  const CameraModel& m_model;
  EventLog& m_log;
  VideoStream m_stream;
  ControlPipe m_pipe;
  RedirLink m_link;
};

}  // namespace uvc
