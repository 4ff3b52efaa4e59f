#include "FileCamera.h"

#include <algorithm>
#include <utility>

namespace {

using Clock = std::chrono::steady_clock;

// What the formats count frame times in.
using ReferenceTime = std::chrono::duration<REFERENCE_TIME, std::ratio<1, 10'000'000>>;

}  // namespace

FileCamera::FileCamera(std::string path, const VideoFormat& format, FilePace pace)
    : m_path(std::move(path)),
      m_format(format),
      m_pace(pace),
      m_picture(std::size_t{format.width} * format.height * 2) {}

HRESULT FileCamera::ListFormats(std::vector<VideoFormat>& formats) {
  formats = {m_format};
  return S_OK;
}

HRESULT FileCamera::SetFormat(VideoFormat& format) {
  if (format.fourCc != m_format.fourCc || format.width != m_format.width ||
      format.height != m_format.height) {
    return VFW_E_INVALIDMEDIATYPE;
  }
  format = m_format;
  return S_OK;
}

HRESULT FileCamera::Start() {
  m_file = std::ifstream();
  // Whole frames are read: a buffer in between would be one more copy.
  m_file.rdbuf()->pubsetbuf(nullptr, 0);
  m_file.open(m_path, std::ios::binary);
  if (!m_file) {
    return kDeviceIoError;
  }
  m_number = 0;
  m_start = Clock::now();
  const std::lock_guard lock(m_mutex);
  m_isWoken = false;
  return S_OK;
}

CaptureSource::Deadline FileCamera::Due() const {
  if (!m_file) {
    return Deadline::max();
  }
  const auto played = ReferenceTime(m_format.interval) * m_number;
  return m_pace == FilePace::kFrameRate ? m_start + std::chrono::duration_cast<Clock::duration>(played)
                                        : m_start;
}

Arrival FileCamera::Next(Deadline deadline, CapturedFrame& frame) {
  {
    std::unique_lock lock(m_mutex);
    if (m_isWoken) {
      return Arrival::kWoken;
    }
    const Deadline due = Due();
    if (due > Clock::now()) {
      if (m_woken.wait_until(lock, std::min(due, deadline), [this] { return m_isWoken; })) {
        return Arrival::kWoken;
      }
      if (due > deadline) {
        return Arrival::kNothing;
      }
    }
  }
  if (!m_file.read(m_picture.data(), static_cast<std::streamsize>(m_picture.size()))) {
    return Arrival::kNothing;
  }
  frame.data = reinterpret_cast<std::uint8_t*>(m_picture.data());
  frame.size = m_picture.size();
  frame.buffer = 0;
  frame.time = std::chrono::duration<double>(ReferenceTime(m_format.interval) * m_number++).count();
  return Arrival::kFrame;
}

void FileCamera::Recycle(const CapturedFrame& /*frame*/) {}

void FileCamera::Stop() { m_file.close(); }

void FileCamera::Wake() {
  {
    const std::lock_guard lock(m_mutex);
    m_isWoken = true;
  }
  m_woken.notify_all();
}

std::vector<CaptureDevice> FilePc::CaptureDevices() {
  return {{R"(@device:pnp:\\?\usb#vid_04f2&pid_b6be&mi_00#file-1.5&0000)"
           R"(#{65e8773d-8f56-11d0-a3b9-00a0c9223196}\video-index0)",
           "File Camera", m_path, "", [path = m_path, format = m_format, pace = m_pace] {
             return std::make_unique<FileCamera>(path, format, pace);
           }}};
}

std::vector<UsbDevice> FilePc::UsbDevices() {
  return {{R"(USB\VID_04F2&PID_B6BE\FILE-1.5)", false, R"(USB\VID_04F2&PID_B6BE&MI_00\FILE-1.5&0000)"}};
}
