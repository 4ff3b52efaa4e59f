// A video device as V4L2 drivers behave: what it is and offers, its format, its buffers, and unplugging.
#pragma once

#include <condition_variable>
#include <functional>
#include <map>
#include <memory>

#include "support/linux/FakeV4l2Buffers.h"
#include "support/linux/FakeV4l2Formats.h"

enum class RateControl {
  kSettable,
  kFixed,  // the driver says that the rate cannot be set
  kNone,   // the driver does not know of rates
};

struct VideoDeviceSettings {
  std::string driver = "uvcvideo";
  std::string card = "Integrated Camera";
  std::uint32_t nodeCapabilities = V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_STREAMING | V4L2_CAP_EXT_PIX_FORMAT;
  // Of all nodes of the device together.
  std::uint32_t deviceCapabilities =
      V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_META_CAPTURE | V4L2_CAP_STREAMING | V4L2_CAP_EXT_PIX_FORMAT;
  bool tellsNodeCapabilities = true;  // old drivers do not
  std::vector<FormatOffer> formats = WebcamFormats();
  std::uint32_t linePadding = 0;  // bytes at the end of each line of an uncompressed picture
  std::uint32_t greatestBufferCount = 32;
  RateControl rate = RateControl::kSettable;
  // The handle that sets anything keeps others from doing so until it is closed.
  bool hasPrivileges = false;
  // What the driver makes of a request that it could fulfil.
  std::function<void(v4l2_pix_format&)> substituteFormat;
  std::function<void(v4l2_fract&)> substituteInterval;
};

// From any thread. Handles are numbers of the caller's, which are also descriptors of event counters: the
// device signals them whenever something changes.
class FakeV4l2Device {
 public:
  FakeV4l2Device(VideoDeviceSettings settings, MisuseList& misuse);

  // --- The kernel's side; an error number or 0 ---

  void Open(int handle, bool isNonBlocking);
  void Close(int handle);
  int Ioctl(int handle, unsigned long request, void* argument);
  void* Map(std::size_t size, off_t offset, int& error);
  bool Unmap(void* address, std::size_t size);
  // What poll reports for a handle. Takes back its signal first, so that no later change goes unseen.
  short Events(int handle);
  // A call to this device was made to fail from outside.
  void CallFailed(unsigned long request, const void* argument);

  // --- The test's side ---

  // Frames for the buffers to come, in that order; as soon as there is one.
  void Supply(FakeFrame frame);
  // The same, and waits until it is in a buffer. False when nobody wanted it for a long time.
  bool Deliver(FakeFrame frame);
  // The cable is out and the kernel has not taken the device away yet: calls still work, but all buffers that
  // the driver has or gets come back empty and marked as damaged.
  void Disconnect();
  // The device goes; nothing brings it back.
  void Unplug();
  void SetSettings(const std::function<void(VideoDeviceSettings&)>& change);

  std::size_t OpenHandles() const;
  std::size_t Mappings() const;
  bool IsStreaming() const;
  // True for memory of the program's that belongs to a buffer of the device.
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
  std::map<int, bool> m_handles;  // and whether it is non-blocking
  int m_privileged = -1;
  v4l2_pix_format m_format{};
  v4l2_fract m_interval{};
  std::deque<FakeFrame> m_supply;
  std::uint64_t m_supplied = 0;
  std::uint64_t m_filled = 0;
  bool m_isDisconnected = false;
  bool m_isGone = false;
};
