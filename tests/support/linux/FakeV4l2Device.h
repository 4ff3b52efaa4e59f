// A fake V4L2 capture device: capabilities, formats, buffers, unplugging.
#pragma once

#include <condition_variable>
#include <functional>
#include <map>
#include <memory>

#include "support/linux/FakeV4l2Buffers.h"
#include "support/linux/FakeV4l2Formats.h"

namespace linux_support {

enum class RateControl {
  kSettable,
  kFixed,  // without V4L2_CAP_TIMEPERFRAME
  kNone,   // VIDIOC_G_PARM and VIDIOC_S_PARM are not implemented
};

struct VideoDeviceSettings {
  std::string driver = "uvcvideo";
  std::string card = "Integrated Camera";
  std::uint32_t nodeCapabilities = V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_STREAMING | V4L2_CAP_EXT_PIX_FORMAT;
  // The union over all nodes of the device.
  std::uint32_t deviceCapabilities =
      V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_META_CAPTURE | V4L2_CAP_STREAMING | V4L2_CAP_EXT_PIX_FORMAT;
  bool reportsNodeCapabilities = true;  // V4L2_CAP_DEVICE_CAPS
  std::vector<FormatOffer> formats = WebcamFormats();
  std::uint32_t linePadding = 0;  // bytes after each line of an uncompressed picture
  bool reportsLineSize = true;
  std::uint32_t maxBufferCount = 32;
  std::optional<std::uint32_t> bufferSize;  // bytes, rounded up to whole pages; by default a picture
  RateControl rate = RateControl::kSettable;
  // The first handle that sets the format or rate has exclusive access until it is closed.
  bool hasPrivileges = false;
  // Changes that the driver makes to a supported format or interval.
  std::function<void(v4l2_pix_format&)> substituteFormat;
  std::function<void(v4l2_fract&)> substituteInterval;
};

// Thread-safe. Handles are eventfds of the caller; the device signals them on every change.
class FakeV4l2Device {
 public:
  FakeV4l2Device(VideoDeviceSettings settings, MisuseList& misuse);

  // --- System calls; results are an error number or 0 ---

  void Open(int handle, bool isNonBlocking);
  void Close(int handle);
  int Ioctl(int handle, unsigned long request, void* argument);
  void* Map(std::size_t size, off_t offset, int& error);
  bool Unmap(void* address, std::size_t size);
  // The events that poll reports for a handle. Clears the handle's eventfd first, so that no later change is
  // missed.
  short Events(int handle);
  // A call to this device failed by injection.
  void CallFailed(unsigned long request, const void* argument);

  // --- Control by the test ---

  // Appends a frame. The frames fill the queued buffers in order.
  void Supply(FakeFrame frame);
  // The same, and waits until the frame is in a buffer. Returns false on a timeout.
  bool Deliver(FakeFrame frame);
  // The cable is unplugged but the kernel has not removed the device yet: calls still work, all buffers are
  // returned empty with the error flag.
  void Disconnect();
  // Removes the device for good.
  void Unplug();
  void SetSettings(const std::function<void(VideoDeviceSettings&)>& change);

  std::size_t OpenHandles() const;
  std::size_t Mappings() const;
  bool IsStreaming() const;
  // True if the memory lies in a mapped buffer of the device.
  bool IsBufferMemory(const std::uint8_t* from, std::size_t size) const;
  v4l2_pix_format Format() const;
  v4l2_fract Interval() const;
  // Bytes of an uncompressed picture in the current format.
  std::size_t PictureSize() const;

 private:
  int TryFormat(v4l2_format& format) const;
  int SetFormat(int handle, v4l2_format& format);
  int GetRate(v4l2_streamparm& parameter) const;
  int SetRate(int handle, v4l2_streamparm& parameter);
  int RequestBuffers(int handle, v4l2_requestbuffers& request);
  int QueueIoctl(int handle, unsigned long request, void* argument);
  void QueryCapabilities(v4l2_capability& capability) const;

  void Complete(v4l2_pix_format& format) const;
  bool IsBusyFor(int handle) const;
  void FillBuffers();
  void SignalAll();

  mutable std::mutex m_mutex;
  std::condition_variable m_changed;
  VideoDeviceSettings m_settings;
  MisuseList& m_misuse;
  FakeV4l2Buffers m_queue;
  std::map<int, bool> m_handles;  // the value: whether the handle is non-blocking
  int m_privileged = -1;
  v4l2_pix_format m_format{};
  v4l2_fract m_interval{};
  std::deque<FakeFrame> m_supply;
  std::uint64_t m_supplied = 0;
  std::uint64_t m_filled = 0;
  bool m_isDisconnected = false;
  bool m_isGone = false;
};

}  // namespace linux_support
