// A camera whose driver answers what the bytes say, through the Linux platform as the camera library uses it:
// listing, the graph, its running, a few frames, its end.
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

namespace {

// Pictures above this would only cost time and memory.
constexpr std::uint64_t kMaxPixels = std::uint64_t{256} * 256;
constexpr std::array<GUID, 4> kWanted = {MEDIASUBTYPE_YUY2, MEDIASUBTYPE_ARGB32, MEDIASUBTYPE_MJPG, GUID{}};
// Looks at every byte that it is given.
class Viewer : public ISampleGrabberCB {
 public:
  // Bytes of a frame; 0 when frames differ.
  explicit Viewer(std::size_t frameSize) : m_frameSize(frameSize) {}

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID /*iid*/, void** object) override {
    *object = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++m_references; }
  ULONG STDMETHODCALLTYPE Release() override { return --m_references; }
  HRESULT STDMETHODCALLTYPE SampleCB(double time, IMediaSample* sample) override {
    BYTE* data = nullptr;
    Require(sample->GetPointer(&data) == S_OK, "a sample has its bytes during the call");
    return BufferCB(time, data, sample->GetActualDataLength());
  }
  HRESULT STDMETHODCALLTYPE BufferCB(double time, BYTE* buffer, LONG length) override {
    Require(time >= 0, "times are counted from the start");
    Require(length > 0, "no frame is empty");
    Require(m_frameSize == 0 || static_cast<std::size_t>(length) == m_frameSize, "a frame has its size",
            std::to_string(length));
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

// The trees that stay the same whatever the bytes: a fixed USB camera with two nodes.
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

// The machine's camera as it is listed when all is well. Making it touches nothing yet.
class OneCamera : public devices::DeviceProvider {
 public:
  OneCamera() {
    ByteReader none(nullptr, 0);
    MalformedSystemCalls behaving(none, Root());
    v4l2::SetSystemCallsForTesting(&behaving);
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
  Require(picture.biWidth > 0 && picture.biHeight > 0, "sizes that are offered are sizes");
  return static_cast<std::uint64_t>(picture.biWidth) * static_cast<std::uint64_t>(picture.biHeight);
}

// What a frame holds in the end; 0 for a size that varies from frame to frame.
std::size_t FrameSize(const MediaType& type, const GUID& wanted) {
  const GUID& delivered = IsEqualGUID(wanted, GUID{}) ? type->subtype : wanted;
  if (IsEqualGUID(delivered, MEDIASUBTYPE_YUY2)) {
    return 2 * Pixels(type);
  }
  return IsEqualGUID(delivered, MEDIASUBTYPE_ARGB32) ? 4 * Pixels(type) : 0;
}

// Asks for one of the media types, perhaps with another rate, as an open request does.
void Choose(ByteReader& reader, IPin& pin, const std::vector<MediaType>& offered) {
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
  constexpr LONG kForEver = -1;
  LONG code = 0;
  Require(graph.Wait(kForEver, code) == S_OK, "a graph that runs completes");
  Require(code == kEventComplete || code == kEventErrorAbort || code == kEventDeviceLost,
          "a graph completes for a known reason", std::to_string(code));
  Require(graph.control->Stop() == S_OK, "a graph can be stopped");
}

void Use(ByteReader& reader) {
  const ComPtr<IBaseFilter> camera = FirstCamera();
  Require(static_cast<bool>(camera), "a camera can be bound");
  const ComPtr<IPin> pin = FindPin(*camera.Get(), PINDIR_OUTPUT);
  std::vector<MediaType> offered;
  ListMediaTypes(*pin.Get(), offered);
  for (const MediaType& type : offered) {
    Require(Pixels(type) > 0 && Video(type).AvgTimePerFrame > 0, "what is offered is a format");
  }
  Choose(reader, *pin.Get(), offered);
  MediaType current;
  if (CurrentFormat(*pin.Get(), current) != S_OK || Pixels(current) > kMaxPixels) {
    return;
  }
  GraphSettings settings;
  settings.grabberSubtype = reader.OneOf(kWanted);
  const std::uint8_t flags = reader.Byte();
  settings.whichMethod = (flags & 1) != 0 ? kCallSampleCB : kCallBufferCB;
  Viewer viewer(FrameSize(current, settings.grabberSubtype));
  CaptureGraph graph;
  Require(graph.Create() == S_OK && graph.AddCamera(camera) == S_OK &&
              graph.AddGrabber(&viewer, settings) == S_OK,
          "a graph can be built");
  graph.cameraPin = pin;
  graph.grabberPin = FindPin(*graph.grabberFilter.Get(), PINDIR_INPUT);
  if (graph.Connect() == S_OK) {
    for (unsigned run = 0; run <= flags / 128U; ++run) {
      RunOnce(graph);
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const auto camera = std::make_shared<OneCamera>();
  ByteReader reader(data, size);
  MalformedSystemCalls kernel(reader, Root());
  v4l2::SetSystemCallsForTesting(&kernel);
  if (reader.Byte() % 2 != 0) {
    // Which of the nodes capture is the driver's to say.
    devices::SetDeviceProvider(nullptr);
    Require(CaptureDevicesSeen().size() <= 2, "there are two nodes");
    Require(UsbDevicesSeen().size() == 1, "there is one USB device");
  }
  devices::SetDeviceProvider(camera);
  Use(reader);
  Require(com::LiveObjects() == 0, "no object is left", std::to_string(com::LiveObjects()));
  Require(com::LiveTaskBlocks() == 0, "no task memory is left", std::to_string(com::LiveTaskBlocks()));
  Require(kernel.OpenDescriptors() == 0, "no node stays open");
  Require(kernel.Mappings() == 0, "no frame memory stays mapped");
  v4l2::SetSystemCallsForTesting(nullptr);
  return 0;
}
