#include "UvcCamera.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <iostream>
#include <string>
#include <system_error>
#include <utility>

namespace uvc {
namespace {

std::string Hex(unsigned value) {
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), "%x", value);
  return text.data();
}

// With several functions, the log lines of each stream have its function as a prefix.
std::vector<std::unique_ptr<VideoStream>> MakeStreams(const CameraModel& model, EventLog& log) {
  std::vector<std::unique_ptr<VideoStream>> streams;
  for (std::size_t i = 0; i < model.functions.size(); ++i) {
    const std::string prefix = model.functions.size() == 1 ? "" : "function " + std::to_string(i) + ": ";
    streams.push_back(std::make_unique<VideoStream>(log, prefix));
  }
  return streams;
}

}  // namespace

Camera::Camera(FileDescriptor socket, const CameraModel& model, EventLog& log)
    : m_model(model),
      m_log(log),
      m_streams(MakeStreams(model, log)),
      m_pipe(model, AllCallbacks()),
      m_link(std::move(socket), model, *this) {}

FunctionCallbacks Camera::CallbacksOf(std::size_t function) {
  VideoStream& stream = *m_streams[function];
  return {.start =
              [this, &stream](const ProbeControl& committed) {
                ++m_startedStreams;
                m_latest = &stream;
                stream.Start(committed.CurrentFormat(), committed.PayloadSize(), m_model.hasEndOfImage,
                             committed.CurrentSize().damage);
              },
          .stop = [&stream] { stream.Stop(); },
          .setBrightness = [&stream](int brightness) { stream.SetBrightness(brightness); }};
}

std::vector<FunctionCallbacks> Camera::AllCallbacks() {
  std::vector<FunctionCallbacks> callbacks;
  for (std::size_t i = 0; i < m_streams.size(); ++i) {
    callbacks.push_back(CallbacksOf(i));
  }
  return callbacks;
}

void Camera::Run(int stop) {
  for (;;) {
    std::array<pollfd, 2> descriptors{pollfd{m_link.Socket(), POLLIN, 0}, pollfd{stop, POLLIN, 0}};
    if (m_link.HasDataToWrite()) {
      descriptors[0].events |= POLLOUT;
    }
    Wait(descriptors);
    if (descriptors[1].revents != 0) {
      StopStreams();
      return;
    }
    const bool isOpen = descriptors[0].revents == 0 || m_link.Read();
    Tick();
    SendAnswers();
    if (IsUnplugged()) {
      StopStreams();
      m_log.Write("unplugged");
      return;
    }
    if (!isOpen || !m_link.Write()) {
      StopStreams();
      m_log.Write("closed");
      return;
    }
  }
}

void Camera::Tick() {
  for (const auto& stream : m_streams) {
    stream->Tick();
  }
}

bool Camera::IsUnplugged() const {
  constexpr std::uint64_t kFrames = 10;
  return m_latest != nullptr && m_startedStreams == m_model.unpluggedStream &&
         m_latest->Sender().FramesSent() >= kFrames;
}

void Camera::StopStreams() {
  for (const auto& stream : m_streams) {
    stream->Stop();
  }
}

// The earliest of the streams' deadlines.
std::optional<VideoStream::Clock::time_point> Camera::Deadline() const {
  std::optional<VideoStream::Clock::time_point> earliest;
  for (const auto& stream : m_streams) {
    const auto deadline = stream->Deadline();
    if (deadline && (!earliest || *deadline < *earliest)) {
      earliest = deadline;
    }
  }
  return earliest;
}

void Camera::Wait(std::span<pollfd> descriptors) const {
  std::optional<timespec> timeout;
  if (const auto deadline = Deadline()) {
    const auto left = std::max(*deadline - VideoStream::Clock::now(), VideoStream::Clock::duration::zero());
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
    timeout = timespec{static_cast<time_t>(seconds.count()),
                       static_cast<long>(std::chrono::nanoseconds(left - seconds).count())};
  }
  if (ppoll(descriptors.data(), descriptors.size(), timeout ? &*timeout : nullptr, nullptr) < 0 &&
      errno != EINTR) {
    throw std::system_error(errno, std::generic_category(), "ppoll");
  }
}

void Camera::SendAnswers() {
  for (std::size_t i = 0; i < m_streams.size(); ++i) {
    while (const auto answer = m_streams[i]->Sender().Next()) {
      m_link.SendBulk(answer->id, StreamEndpoint(i), answer->data);
    }
  }
}

void Camera::OnHello() {
  m_link.SendConnect();
  m_log.Write("ready");
  std::cout << "ready" << std::endl;
}

void Camera::OnReset() {
  m_pipe.Reset();
  m_log.Write("reset");
}

std::optional<Bytes> Camera::OnControl(const Setup& setup, std::span<const std::uint8_t> data) {
  std::optional<Bytes> answer = m_pipe.Handle(setup, data);
  if (!answer) {
    m_log.Write("stalled " + Hex(setup.requestType) + " " + Hex(setup.request) + " value " +
                Hex(setup.value) + " index " + Hex(setup.index));
  }
  return answer;
}

bool Camera::OnSetConfiguration(std::uint8_t configuration) { return m_pipe.SetConfiguration(configuration); }

bool Camera::OnSetInterface(std::uint8_t interface, std::uint8_t alternate) {
  return m_pipe.SetInterface(interface, alternate);
}

bool Camera::OnBulk(std::uint64_t id, std::uint8_t endpoint, std::size_t length) {
  const std::size_t function = FunctionOfEndpoint(endpoint);
  if (function >= m_streams.size()) {
    return false;
  }
  m_streams[function]->Sender().Request(id, length);
  return true;
}

std::optional<std::uint8_t> Camera::OnCancel(std::uint64_t id) {
  for (std::size_t i = 0; i < m_streams.size(); ++i) {
    if (m_streams[i]->Sender().Cancel(id)) {
      return StreamEndpoint(i);
    }
  }
  return std::nullopt;
}

}  // namespace uvc
