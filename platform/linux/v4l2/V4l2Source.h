// A camera behind a V4L2 node.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "v4l2/EventFd.h"
#include "v4l2/SequenceTracker.h"
#include "v4l2/V4l2BufferPool.h"
#include "v4l2/V4l2Formats.h"
#include "v4l2/Yuy2Packer.h"

class V4l2Source : public CaptureSource {
 public:
  explicit V4l2Source(std::string path);
  ~V4l2Source() override;

  HRESULT ListFormats(std::vector<VideoFormat>& formats) override;
  HRESULT SetFormat(VideoFormat& format) override;
  HRESULT Start() override;
  Arrival Next(Deadline deadline, CapturedFrame& frame) override;
  void Recycle(const CapturedFrame& frame) override;
  void Stop() override;
  void Wake() override { m_wakeUp.Signal(); }

 private:
  HRESULT EnsureOpen();
  HRESULT EnsureListed();
  // Sets size, pixel format and rate; the rate that the device takes goes into the format.
  HRESULT Apply(VideoFormat& format);
  int SetSizeAndPixelFormat(const V4l2Format& choice);
  int SetRate(const v4l2_fract& interval, REFERENCE_TIME& actual);
  // The offer of that size and layout whose interval is nearest; for sizes that are not offered, the layout
  // as it is.
  V4l2Format ChooseOffer(const VideoFormat& wanted) const;
  bool IsCompressed() const { return m_format.fourCc == kMjpg; }
  // Bytes of a whole picture in the driver's buffer; 1 for compressed pictures, whose size varies.
  std::size_t MinBytes() const;

  // What is known after taking a buffer: a frame, the end, or nothing yet.
  std::optional<Arrival> TakeFrame(bool isAlarmed, CapturedFrame& frame);
  bool IsInOrder(const v4l2_buffer& buffer);
  bool IsWhole(const v4l2_buffer& buffer);
  void Present(const v4l2_buffer& buffer, CapturedFrame& frame);

  std::string m_path;
  V4l2Device m_device;
  std::vector<V4l2Format> m_offered;
  bool m_isListed = false;
  VideoFormat m_request;  // as it was asked for
  VideoFormat m_format;   // as the device delivers it; fourCc 0: none set
  v4l2_pix_format m_layout{};
  Yuy2Packer m_packer;  // for uncompressed pictures, while streaming
  MappedBuffers m_buffers;
  WakeUp m_wakeUp;
  std::chrono::steady_clock::time_point m_start;
  FrameNumbers m_numbers;
  unsigned m_failures = 0;  // buffers that could not be taken, one after the other
  bool m_isStreaming = false;
  bool m_isLost = false;
};
