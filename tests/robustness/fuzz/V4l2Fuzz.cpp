// Fuzzes the Linux platform with malformed results of V4L2 system calls: enumeration, building and running a
// graph, a few frames, and teardown.
#include <atomic>
#include <memory>
#include <vector>

#include "MalformedSystemCalls.h"
#include "Require.h"
#include "com/Com.h"
#include "devices/DeviceProvider.h"
#include "graph/StreamStats.h"
#include "support/linux/CaptureSession.h"
#include "support/linux/SysfsTree.h"

namespace fuzz {
namespace {

using linux_support::CaptureGraph;
using linux_support::ChangeFormat;
using linux_support::CurrentFormat;
using linux_support::FindPin;
using linux_support::FirstCamera;
using linux_support::GraphSettings;
using linux_support::kCallBufferCB;
using linux_support::kCallSampleCB;
using linux_support::kEventComplete;
using linux_support::kEventDeviceLost;
using linux_support::kEventErrorAbort;
using linux_support::kInfinite;
using linux_support::ListCaptureDevices;
using linux_support::ListMediaTypes;
using linux_support::ListUsbDevices;
using linux_support::MediaType;
using linux_support::SysfsTree;
using linux_support::Video;

// Larger pictures only slow the fuzzer down.
constexpr std::uint64_t kMaxPixels = std::uint64_t{256} * 256;
constexpr std::array<GUID, 4> kGrabberSubtypes = {MEDIASUBTYPE_YUY2, MEDIASUBTYPE_ARGB32, MEDIASUBTYPE_MJPG,
                                                  GUID{}};

// Reads every byte of the frames, so that AddressSanitizer detects invalid ones.
class FrameReader : public ISampleGrabberCB {
 public:
  // frameSize: expected size in bytes; 0 if it varies.
  explicit FrameReader(std::size_t frameSize) : m_frameSize(frameSize) {}

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID /*iid*/, void** object) override {
    *object = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++m_references; }
  ULONG STDMETHODCALLTYPE Release() override { return --m_references; }
  HRESULT STDMETHODCALLTYPE SampleCB(double time, IMediaSample* sample) override {
    BYTE* data = nullptr;
    Require(sample->GetPointer(&data) == S_OK, "a sample has data during the callback");
    return BufferCB(time, data, sample->GetActualDataLength());
  }
  HRESULT STDMETHODCALLTYPE BufferCB(double time, BYTE* buffer, LONG length) override {
    Require(time >= 0, "the sample time is not negative");
    Require(length > 0, "a frame is not empty");
    Require(m_frameSize == 0 || static_cast<std::size_t>(length) == m_frameSize,
            "a frame has the expected size", std::to_string(length));
    for (LONG i = 0; i < length; ++i) {
      m_sum = m_sum + buffer[i];
    }
    return S_OK;
  }

 private:
  std::size_t m_frameSize;
  std::atomic<ULONG> m_references = 0;
  volatile unsigned m_sum = 0;
};

// sysfs and /dev of a built-in USB camera with two video nodes.
const SysfsTree& Tree() {
  static const std::unique_ptr<SysfsTree> tree = [] {
    auto made = std::make_unique<SysfsTree>();
    made->AddUsb({"1-5"});
    made->AddVideoOfUsb(0, "1-5:1.0", "camera", 0);
    made->AddVideoOfUsb(1, "1-5:1.0", "camera", 1);
    return made;
  }();
  return *tree;
}

std::filesystem::path Root() { return Tree().SysfsRoot().parent_path(); }

// Lists the cameras that the Linux platform finds with well-formed system calls.
class FixedDeviceProvider : public devices::DeviceProvider {
 public:
  FixedDeviceProvider() {
    ByteReader noInput(nullptr, 0);
    MalformedSystemCalls wellFormed(noInput, Root());
    v4l2::SetSystemCallsForTesting(&wellFormed);
    devices::SetDeviceProvider(nullptr);
    m_cameras = devices::CurrentDeviceProvider()->CaptureDevices();
    v4l2::SetSystemCallsForTesting(nullptr);
    Require(m_cameras.size() == 2, "there are two nodes");
  }
  std::vector<devices::CaptureDevice> CaptureDevices() override { return m_cameras; }
  std::vector<devices::UsbDevice> UsbDevices() override { return {}; }

 private:
  std::vector<devices::CaptureDevice> m_cameras;
};

std::uint64_t Pixels(const MediaType& type) {
  const BITMAPINFOHEADER& picture = Video(type).bmiHeader;
  Require(picture.biWidth > 0 && picture.biHeight > 0, "an offered size is positive");
  return static_cast<std::uint64_t>(picture.biWidth) * static_cast<std::uint64_t>(picture.biHeight);
}

// Size in bytes of the frames that the grabber receives; 0 if it varies.
std::size_t FrameSize(const MediaType& type, const GUID& grabberSubtype) {
  const GUID& delivered = IsEqualGUID(grabberSubtype, GUID{}) ? type->subtype : grabberSubtype;
  if (IsEqualGUID(delivered, MEDIASUBTYPE_YUY2)) {
    return 2 * Pixels(type);
  }
  return IsEqualGUID(delivered, MEDIASUBTYPE_ARGB32) ? 4 * Pixels(type) : 0;
}

// Sets one of the offered formats, possibly with another frame interval, as an open request does.
void ChooseFormat(ByteReader& reader, IPin& pin, const std::vector<MediaType>& offered) {
  if (offered.empty()) {
    return;
  }
  const MediaType& chosen = offered[reader.Below(256) % offered.size()];
  const LONGLONG interval = reader.Byte() == 0 ? Video(chosen).AvgTimePerFrame : reader.Value<LONGLONG>();
  ChangeFormat(pin, chosen->subtype, Video(chosen).bmiHeader.biWidth, Video(chosen).bmiHeader.biHeight,
               interval);
}

void RunOnce(const CaptureGraph& graph) {
  if (graph.control->Run() != S_OK) {
    return;
  }
  constexpr LONG kInfinite = -1;
  LONG code = 0;
  Require(graph.Wait(kInfinite, code) == S_OK, "a running graph completes");
  Require(code == kEventComplete || code == kEventErrorAbort || code == kEventDeviceLost,
          "a graph completes with a known event", std::to_string(code));
  Require(graph.control->Stop() == S_OK, "a graph can be stopped");
}

void UseCamera(ByteReader& reader) {
  const ComPtr<IBaseFilter> camera = FirstCamera();
  Require(static_cast<bool>(camera), "a camera can be bound");
  const ComPtr<IPin> pin = FindPin(*camera.Get(), PINDIR_OUTPUT);
  std::vector<MediaType> offered;
  ListMediaTypes(*pin.Get(), offered);
  for (const MediaType& type : offered) {
    Require(Pixels(type) > 0 && Video(type).AvgTimePerFrame > 0,
            "an offered format has a size and a frame interval");
  }
  ChooseFormat(reader, *pin.Get(), offered);
  MediaType current;
  if (CurrentFormat(*pin.Get(), current) != S_OK || Pixels(current) > kMaxPixels) {
    return;
  }
  GraphSettings settings;
  settings.grabberSubtype = reader.OneOf(kGrabberSubtypes);
  const std::uint8_t flags = reader.Byte();
  settings.whichMethod = (flags & 1) != 0 ? kCallSampleCB : kCallBufferCB;
  FrameReader frameReader(FrameSize(current, settings.grabberSubtype));
  CaptureGraph graph;
  Require(graph.Create() == S_OK && graph.AddCamera(camera) == S_OK &&
              graph.AddGrabber(&frameReader, settings) == S_OK,
          "a graph can be built");
  graph.cameraPin = pin;
  graph.grabberPin = FindPin(*graph.grabberFilter.Get(), PINDIR_INPUT);
  if (graph.Connect() == S_OK) {
    for (unsigned run = 0; run <= flags / 128U; ++run) {
      RunOnce(graph);
    }
  }
}

void Run(const std::uint8_t* data, std::size_t size) {
  static const auto fixedDevices = std::make_shared<FixedDeviceProvider>();
  ByteReader reader(data, size);
  MalformedSystemCalls systemCalls(reader, Root());
  v4l2::SetSystemCallsForTesting(&systemCalls);
  if (reader.Byte() % 2 != 0) {
    // The input decides which of the nodes are capture devices.
    devices::SetDeviceProvider(nullptr);
    Require(ListCaptureDevices().size() <= 2, "there are at most two nodes");
    Require(ListUsbDevices().size() == 1, "there is one USB device");
  }
  devices::SetDeviceProvider(fixedDevices);
  UseCamera(reader);
  Require(com::LiveObjects() == 0, "no object is leaked", std::to_string(com::LiveObjects()));
  Require(com::LiveTaskBlocks() == 0, "no task memory is leaked", std::to_string(com::LiveTaskBlocks()));
  Require(systemCalls.OpenDescriptors() == 0, "all nodes are closed");
  Require(systemCalls.Mappings() == 0, "all buffers are unmapped");
  v4l2::SetSystemCallsForTesting(nullptr);
}

}  // namespace
}  // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Run(data, size);
  return 0;
}
