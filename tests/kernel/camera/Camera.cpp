#include "Camera.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <iostream>
#include <system_error>
#include <utility>

namespace uvc {
namespace {

std::string Hex(unsigned value) {
  std::array<char, 16> text{};
  std::snprintf(text.data(), text.size(), "%x", value);
  return text.data();
}

}  // namespace

Camera::Camera(FileDescriptor socket, const CameraModel& model, EventLog& log)
    : m_model(model),
      m_log(log),
      m_stream(log),
      m_pipe(model, {.start =
                         [this](const ProbeControl& committed) {
                           m_stream.Start(committed.CurrentFormat(), committed.PayloadSize());
                         },
                     .stop = [this] { m_stream.Stop(); },
                     .setBrightness =
                         [this](int brightness) {
                           m_stream.SetBrightness(brightness);
                           m_log.Write("brightness " + std::to_string(brightness));
                         }}),
      m_link(std::move(socket), *this) {}

void Camera::Run(int stop) {
  for (;;) {
    std::array<pollfd, 2> descriptors{pollfd{m_link.Socket(), POLLIN, 0}, pollfd{stop, POLLIN, 0}};
    if (m_link.WantsToWrite()) {
      descriptors[0].events |= POLLOUT;
    }
    Wait(descriptors);
    if (descriptors[1].revents != 0) {
      m_stream.Stop();
      return;
    }
    const bool isOpen = descriptors[0].revents == 0 || m_link.Read();
    m_stream.Tick();
    SendAnswers();
    if (!isOpen || !m_link.Write()) {
      m_stream.Stop();
      m_log.Write("closed");
      return;
    }
  }
}

void Camera::Wait(std::span<pollfd> descriptors) const {
  std::optional<timespec> timeout;
  if (const auto deadline = m_stream.Deadline()) {
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
  while (const auto answer = m_stream.Sender().Next()) {
    m_link.SendBulk(answer->id, answer->data);
  }
}

void Camera::OnHello() {
  m_link.SendConnect(m_model);
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
  if (endpoint != kStreamEndpoint) {
    return false;
  }
  m_stream.Sender().Request(id, length);
  return true;
}

bool Camera::OnCancel(std::uint64_t id) { return m_stream.Sender().Cancel(id); }

}  // namespace uvc
