// Fuzzes whole sessions of the library: the input chooses the PC, the calls, the results of the platform and
// the frames. All results are documented ones, nothing is leaked, and afterwards a working camera can be
// used.
#include <chrono>
#include <thread>
#include <utility>
#include <vector>

#include "ByteReader.h"
#include "FuzzedFaults.h"
#include "FuzzedLibrary.h"
#include "Require.h"

namespace fuzz {
namespace {

constexpr unsigned kMaxSteps = 40;
constexpr unsigned kBuffers = 5;
constexpr std::size_t kMaxBytes = 65536;
// Flags from here on skip the session with a working camera at the end, which takes most of the time.
constexpr std::uint8_t kSkipFinalSession = 0x40;

struct Size {
  std::uint32_t width;
  std::uint32_t height;
};
constexpr std::array<Size, 8> kSizes = {
    {{16, 16}, {32, 16}, {64, 48}, {0, 0}, {16, 0xFFFFFFF0}, {65535, 65535}, {3, 5}, {1, 1}}};
const std::array<std::string, 8> kIds = {"0", "", "00", "1", "0x", "-1", "99999999999999999999", "0 "};
// Length of a delivered frame relative to the configured size.
enum class Length { kWhole, kShort, kOneByte, kNone, kNegative, kTooLong, kMax, kNoData };
constexpr std::array kLengths = {Length::kWhole,    Length::kShort,   Length::kOneByte, Length::kNone,
                                 Length::kNegative, Length::kTooLong, Length::kMax,     Length::kNoData};

bool IsId(const std::string& id) { return id.find_first_not_of("0123456789") == std::string::npos; }

scripted::Camera ReadCamera(ByteReader& reader) {
  constexpr std::array<int, 4> kRates = {30, 15, 60, 1};
  const std::uint8_t flags = reader.Byte();
  scripted::Camera camera = scripted::BuiltInCamera({});
  const std::size_t count = reader.Below(6);
  for (std::size_t i = 0; i < count; ++i) {
    const Size& size = reader.OneOf(kSizes);
    const GUID subType = reader.Byte() % 2 == 0 ? MEDIASUBTYPE_YUY2 : MEDIASUBTYPE_MJPG;
    camera.pins.front().mediaTypes.push_back(scripted::OfSubType(
        subType, static_cast<LONG>(size.width), static_cast<LONG>(size.height), reader.OneOf(kRates)));
  }
  if ((flags & 1) != 0) {
    camera.pins.insert(camera.pins.begin(), scripted::Pin{"in", PINDIR_INPUT, {}});
  }
  if ((flags & 2) != 0) {
    camera.pins.insert(camera.pins.begin(), scripted::Pin{"null", PINDIR_OUTPUT, {}, true});
  }
  if ((flags & 4) != 0) {
    camera.pins.clear();
  }
  if ((flags & 8) != 0) {
    // A lone surrogate is not valid UTF-16.
    camera.displayName.insert(reader.Below(camera.displayName.size()), 1, wchar_t{0xD800});
  }
  return camera;
}

scripted::Pc ReadPc(ByteReader& reader, std::uint8_t flags) {
  scripted::Pc pc = scripted::LaptopPc({});
  pc.cameras.back() = ReadCamera(reader);
  if ((flags & 1) != 0) {
    pc.usbDevices.back().status = DN_REMOVABLE;
  }
  if ((flags & 2) != 0) {
    // Shorter or longer than the buffer of the library.
    pc.usbDevices.back().firstChildId = std::string(std::size_t{2} * reader.Byte(), 'A');
  }
  if ((flags & 4) != 0) {
    pc.cameras.front().isNull = true;
  }
  if ((flags & 8) != 0) {
    pc.cameras.pop_back();
  }
  if ((flags & 16) != 0) {
    pc.usbDevices.clear();
  }
  if ((flags & 32) != 0) {
    pc.cameras.clear();
  }
  return pc;
}

// Text without a terminator in its own heap block, so that AddressSanitizer detects reads past its end.
struct HeapText {
  explicit HeapText(const std::string& text) : bytes(text.begin(), text.end()) {}
  const char* Data() const { return bytes.data() == nullptr ? "" : bytes.data(); }

  std::vector<char> bytes;
};

class Session {
 public:
  explicit Session(ByteReader& reader)
      : m_reader(reader), m_flags(reader.Byte()), m_library(ReadPc(reader, m_flags)) {
    m_faults.Attach(m_library.platform);
  }

  void Run() {
    for (unsigned step = 0; step < kMaxSteps && !m_reader.IsEmpty(); ++step) {
      Step();
      m_withoutMemory += m_faults.TakeFramesWithoutBuffer();
    }
    Finish();
  }

 private:
  void Step() {
    switch (m_reader.Below(16)) {
      case 0:
        return Query();
      case 1:
      case 2:
        return Open();
      case 3:
        return Close();
      case 4:
        return Deliver();
      case 5:
        return DeliverLate();
      case 6:
        return RegisterData();
      case 7:
        return RegisterListener();
      case 8:
        return m_faults.Arm(m_reader);
      case 9:
        return m_faults.ChooseEncoding(m_reader);
      case 10:
        return StartStreaming();
      case 11:
        return ConfigureHost();
      case 12:
        return m_library.platform.SetPc(ReadPc(m_reader, m_reader.Byte()));
      case 13:
        return Reload();
      case 14:
        return CallWithInvalidArguments();
      default:
        return ReleaseRecord();
    }
  }

  void Query() {
    ReleaseRecord();
    m_library.Query(m_record);
  }

  void ReleaseRecord() { m_library.Release(std::exchange(m_record, nullptr)); }

  void Open() {
    const Size& size = m_reader.OneOf(kSizes);
    const std::string& id = m_reader.OneOf(kIds);
    const HeapText text(id);
    const NUVEQCameraParam param{text.Data(), static_cast<std::uint32_t>(id.size()), size.width, size.height,
                                 m_reader.Byte()};
    const bool wasOpened = FuzzedLibrary::IsOpened();
    const int result = m_library.table.OpenCameraDevice(&param);
    if (!IsId(id)) {
      Require(result == NUVEQ_CAMERA_INVALID_ARGUMENT, "a malformed id is rejected", std::to_string(result));
    } else if (wasOpened) {
      Require(result == NUVEQ_CAMERA_ALREADY_OPEN, "an open camera is not opened again",
              std::to_string(result));
    } else {
      Require(result == NUVEQ_CAMERA_OK || result == NUVEQ_CAMERA_GRAPH_FAILED ||
                  result == NUVEQ_CAMERA_ENCODER_FAILED,
              "an open request returns a documented result", std::to_string(result));
      m_isEncoding = result == NUVEQ_CAMERA_OK;
    }
    if (result == NUVEQ_CAMERA_OK) {
      // Opening creates a new frame pool.
      m_lost = 0;
      m_unencoded = 0;
      m_withoutMemory = 0;
    }
  }

  void Close() {
    const bool hadControl = FuzzedLibrary::HasControl();
    const int result = m_library.Close();
    Require(result == 0 || (result == 1 && hadControl), "a close request returns a documented result",
            std::to_string(result));
    Require(!FuzzedLibrary::IsOpened() && !FuzzedLibrary::HasControl(), "a close request closes the camera");
    if (hadControl) {
      NoteClosed();
    }
  }

  void NoteClosed() {
    m_library.RequireNothingAlive(m_record != nullptr);
    m_isEncoding = false;
    m_lost = 0;
    m_unencoded = 0;
    m_withoutMemory = 0;
  }

  // Whether a frame can be delivered on this thread, which must not block waiting for a buffer.
  bool HasBuffer() const {
    return m_library.FrameSize() <= kMaxBytes && m_lost + m_withoutMemory < kBuffers &&
           (m_isEncoding || m_unencoded < kBuffers);
  }

  static LONG LengthOf(Length kind, const std::vector<std::uint8_t>& frame) {
    return kind == Length::kNegative ? -1
           : kind == Length::kMax    ? INT32_MAX
                                     : static_cast<LONG>(frame.size());
  }

  void NoteDelivered(Length kind) {
    m_lost += kind == Length::kTooLong || kind == Length::kMax ? 1U : 0U;
    ++m_unencoded;
  }

  void Deliver() {
    const Length kind = m_reader.OneOf(kLengths);
    if (m_isLive || !HasBuffer()) {
      return;
    }
    const std::vector<std::uint8_t> frame = MakeFrame(kind);
    const std::uint64_t packets = m_library.host.PacketCount();
    if (!m_library.platform.DeliverFrame(kind == Length::kNoData ? nullptr : frame.data(),
                                         LengthOf(kind, frame))) {
      return;
    }
    NoteDelivered(kind);
    const bool isWhole = kind == Length::kWhole || kind == Length::kShort || kind == Length::kOneByte;
    if (isWhole && m_isEncoding && m_hasDataCallback && m_withoutMemory == 0 && m_faults.EncodingSucceeds()) {
      Require(m_library.host.WaitForPackets(packets + 1), "a frame produces a packet");
    }
  }

  // Delivers a frame after the graph was stopped and released.
  void DeliverLate() {
    const Length kind = m_reader.OneOf(kLengths);
    ISampleGrabberCB* const callback = m_library.platform.GrabberCallback();
    if (callback == nullptr || FuzzedLibrary::HasControl() || !HasBuffer()) {
      return;
    }
    std::vector<std::uint8_t> frame = MakeFrame(kind);
    Require(callback->BufferCB(0, kind == Length::kNoData ? nullptr : frame.data(), LengthOf(kind, frame)) ==
                S_OK,
            "BufferCB returns S_OK");
    NoteDelivered(kind);
  }

  std::vector<std::uint8_t> MakeFrame(Length kind) const {
    const std::size_t size = m_library.FrameSize();
    switch (kind) {
      case Length::kShort:
        return std::vector<std::uint8_t>(size / 2 + 1, 1);
      case Length::kOneByte:
      case Length::kMax:
      case Length::kNegative:
        return std::vector<std::uint8_t>(1, 1);
      case Length::kNone:
        return {};
      case Length::kTooLong:
        return std::vector<std::uint8_t>(size + 1, 1);
      case Length::kWhole:
      case Length::kNoData:
        break;
    }
    return std::vector<std::uint8_t>(size, 1);
  }

  // Makes later graphs deliver the chosen frames on a thread of their own, followed by a complete frame, so
  // that the graph completes.
  void StartStreaming() {
    const std::size_t count = m_reader.Below(12);
    std::vector<Length> frames;
    for (std::size_t i = 0; i < count; ++i) {
      frames.push_back(m_reader.OneOf(kLengths));
    }
    frames.push_back(Length::kWhole);
    if (!FuzzedLibrary::HasControl()) {
      m_isLive = count > 0;
      m_library.platform.SetStreaming({m_isLive, [this, frames](std::uint64_t number) {
                                         if (number < frames.size()) {
                                           return MakeFrame(frames[number]);
                                         }
                                         std::this_thread::sleep_for(std::chrono::microseconds(100));
                                         return std::vector<std::uint8_t>();
                                       }});
    }
  }

  void RegisterData() {
    const bool isNull = m_reader.Byte() % 2 != 0;
    const int result =
        m_library.table.RegisterSendDataCallback(nullptr, 0, isNull ? nullptr : &HostCallbacks::OnData);
    Require(result == (isNull ? NUVEQ_CAMERA_INVALID_ARGUMENT : NUVEQ_CAMERA_OK),
            "a data callback is accepted if it is not null");
    m_hasDataCallback = m_hasDataCallback || !isNull;
  }

  void RegisterListener() {
    const std::uint8_t flags = m_reader.Byte();
    const NUVEQServiceListener listener{(flags & 1) != 0 ? nullptr : &HostCallbacks::OnStatus,
                                        (flags & 2) != 0 ? nullptr : &HostCallbacks::OnAction};
    Require(m_library.table.RegisterServiceListener(&listener) == NUVEQ_CAMERA_OK, "a listener is accepted");
  }

  // Chooses the results of the host's callbacks and whether they close the camera.
  void ConfigureHost() {
    const std::uint8_t flags = m_reader.Byte();
    const auto close = [this](const auto&) { m_library.Close(); };
    m_library.host.SetDataResult((flags & 1) != 0 ? -1 : 0);
    m_library.host.SetStatusResult((flags & 2) != 0 ? -1 : 0);
    m_library.host.SetActionResult((flags & 4) != 0 ? -1 : 0);
    m_library.host.InData((flags & 8) != 0 ? std::function<void(const Packet&)>(close) : nullptr);
    m_library.host.InStatus((flags & 16) != 0 ? std::function<void(int)>(close) : nullptr);
  }

  // May be called while the camera is open.
  void Reload() {
    ReleaseRecord();
    FuzzedLibrary::Reload();
    m_hasDataCallback = false;
    NoteClosed();
  }

  void CallWithInvalidArguments() {
    const NUVEQCameraHandler& table = m_library.table;
    NUVEQCameraCapabilities* record = nullptr;
    std::uint32_t count = 0;
    const NUVEQCameraParam withoutId{nullptr, m_reader.Byte(), 16, 16, 30};
    for (const int result :
         {NUVEQGetCameraHandler(nullptr), table.OpenCameraDevice(nullptr), table.OpenCameraDevice(&withoutId),
          table.GetCapability(nullptr, &count), table.GetCapability(&record, nullptr),
          table.RegisterServiceListener(nullptr), table.RegisterSendDataCallback(nullptr, 0, nullptr)}) {
      Require(result == NUVEQ_CAMERA_INVALID_ARGUMENT, "a null argument is rejected", std::to_string(result));
    }
    table.ReleaseCapability(0, nullptr, m_reader.Byte());
    Require(table.Reserved3(nullptr, 0, 0, nullptr) == 0 && table.Reserved5(nullptr) == 0 &&
                table.Reserved8(0, nullptr, 0, nullptr) == 0,
            "reserved functions return 0");
  }

  // Closes the camera and requires that a working one can be used. Without a graph to close, the library is
  // reloaded.
  void Finish() {
    m_faults.Disarm();
    m_library.host.Reset();
    m_library.host.KeepPackets(false);
    ReleaseRecord();
    if (FuzzedLibrary::HasControl()) {
      Close();
    } else {
      FuzzedLibrary::Reload();
      NoteClosed();
    }
    if (m_flags >= kSkipFinalSession) {
      return;
    }
    m_library.platform.SetStreaming({});
    m_library.platform.SetPc(scripted::LaptopPc({scripted::Yuy2(16, 16, 30)}));
    m_library.RunWholeSession(16, 16);
  }

  ByteReader& m_reader;
  std::uint8_t m_flags;
  FuzzedFaults m_faults;
  FuzzedLibrary m_library;
  NUVEQCameraCapabilities* m_record = nullptr;
  bool m_hasDataCallback = false;
  bool m_isEncoding = false;  // there is an encoder thread: an open request has succeeded
  bool m_isLive = false;
  unsigned m_lost = 0;           // buffers lost to frames that were too long
  unsigned m_withoutMemory = 0;  // buffers
  unsigned m_unencoded = 0;      // frames delivered since the open request
};

}  // namespace
}  // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::ByteReader reader(data, size);
  fuzz::Session(reader).Run();
  return 0;
}
