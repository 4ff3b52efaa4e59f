// The whole tool in the test process, over simulated PCs that the command line cannot configure.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <malloc.h>

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <sstream>
#include <thread>

#include "TemporaryFolder.h"
#include "com/Com.h"
#include "commands/Commands.h"
#include "devices/DeviceProvider.h"
#include "graph/StreamStats.h"
#include "simulated/SimulatedPc.h"
#include "support/ProcessCounts_linux.h"

namespace nuveqcam {
namespace {

using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::StartsWith;

class Tool : public TemporaryFolder {
 protected:
  void TearDown() override { devices::SetDeviceProvider(nullptr); }

  void UsePc(const simulated::SimulatedPcSettings& settings) {
    pc = std::make_shared<simulated::SimulatedPc>(settings);
    devices::SetDeviceProvider(pc);
  }

  Options OptionsOf(std::vector<std::string> words) {
    for (std::string& word : words) {
      if (word.starts_with("OUT.")) {
        word = NameOf(folder / word);
      }
    }
    const auto parsed = ParseArguments(words);
    EXPECT_TRUE(std::holds_alternative<Options>(parsed));
    return std::get<Options>(parsed);
  }

  ExitCode Run(const std::vector<std::string>& words) {
    return RunTool(OptionsOf(words), {out, err}, timeouts);
  }

  // Runs the tool and calls disturb once the condition holds.
  ExitCode RunAndDisturbWhen(const std::vector<std::string>& words, const std::function<bool()>& condition,
                             const std::function<void()>& disturb) {
    std::atomic<bool> hasEnded = false;
    std::thread disturber([&] {
      while (!hasEnded && !condition()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
      }
      disturb();
    });
    const ExitCode code = Run(words);
    hasEnded = true;
    disturber.join();
    return code;
  }

  // Runs the tool and calls disturb once the output file has content.
  ExitCode RunAndDisturb(const std::vector<std::string>& words, const std::string& file,
                         const std::function<void()>& disturb) {
    const auto hasContent = [&] {
      std::error_code error;
      const auto size = std::filesystem::file_size(folder / file, error);
      return !error && size > 0;
    };
    return RunAndDisturbWhen(words, hasContent, disturb);
  }

  Timeouts timeouts;
  std::shared_ptr<simulated::SimulatedPc> pc;
  std::ostringstream out;
  std::ostringstream err;
};

simulated::SimulatedPcSettings WithoutBuiltInCamera() {
  simulated::SimulatedPcSettings settings;
  settings.hasBuiltInCamera = false;
  return settings;
}

TEST_F(Tool, ListsTheDevicesIfThereIsNoBuiltInCamera) {
  UsePc(WithoutBuiltInCamera());
  const std::vector<CaptureDeviceInfo> devices = ListCaptureDevices();
  ASSERT_EQ(devices.size(), 1);
  for (const std::vector<std::string>& words : {std::vector<std::string>{"list"},
                                                {"record", "-o", "OUT.mp4"},
                                                {"snapshot", "-o", "OUT.png"},
                                                {"probe"}}) {
    err.str("");
    EXPECT_EQ(Run(words), ExitCode::kNoCamera);
    EXPECT_THAT(err.str(), StartsWith("nuveqcam: this PC has no built-in camera; "));
    EXPECT_THAT(err.str(), HasSubstr(devices[0].name + ", not selected: " + devices[0].exclusionReason));
  }
  EXPECT_EQ(out.str(), "");
  EXPECT_TRUE(std::filesystem::is_empty(folder));
}

TEST_F(Tool, ReportsThatThereAreNoDevices) {
  simulated::SimulatedPcSettings settings = WithoutBuiltInCamera();
  settings.hasPlugInCamera = false;
  UsePc(settings);
  EXPECT_EQ(Run({"list"}), ExitCode::kNoCamera);
  EXPECT_THAT(err.str(), HasSubstr("no capture devices were found"));
}

TEST_F(Tool, PrintsJsonAlsoWithoutACamera) {
  UsePc(WithoutBuiltInCamera());
  EXPECT_EQ(Run({"list", "--json"}), ExitCode::kNoCamera);
  EXPECT_THAT(out.str(), StartsWith(R"({"cameras":[],"devices":[{"name":")"));
  out.str("");
  EXPECT_EQ(Run({"probe", "--json"}), ExitCode::kNoCamera);
  EXPECT_THAT(out.str(), HasSubstr(R"("complete":false,)"));
  EXPECT_THAT(out.str(), HasSubstr(R"("camera":null,"sizes":[],)"));
}

std::vector<std::string> Recording(const std::string& seconds, const std::string& file) {
  return {"record", "--seconds", seconds, "--size", "320x240", "-o", file};
}

TEST_F(Tool, RecordingEndedByADisconnectReportsItsDuration) {
  const std::vector<std::pair<std::string, std::string>> cases{{"0", " s, "}, {"5", " s of 5 s, "}};
  for (const auto& [seconds, amount] : cases) {
    for (const char* const file : {"OUT.mp4", "OUT.h264"}) {
      UsePc({});
      out.str("");
      err.str("");
      std::filesystem::remove(folder / file);
      EXPECT_EQ(RunAndDisturb(Recording(seconds, file), file, [&] { pc->RemoveBuiltInCamera(); }),
                ExitCode::kEndedEarly);
      EXPECT_THAT(out.str(), StartsWith("recorded "));
      EXPECT_THAT(err.str(), StartsWith("nuveqcam: the camera was disconnected; recorded "));
      EXPECT_THAT(err.str(), HasSubstr(amount + "complete up to that point; check with 'nuveqcam list'"));
    }
  }
}

TEST_F(Tool, RecordingEndedByATimeoutReportsItsDuration) {
  timeouts.packet = std::chrono::seconds(5);  // longer than the recording
  const std::vector<std::pair<std::string, std::string>> cases{{"0", " s, "}, {"4", " s of 4 s, "}};
  for (const auto& [seconds, amount] : cases) {
    UsePc({});
    out.str("");
    err.str("");
    std::filesystem::remove(folder / "OUT.h264");
    EXPECT_EQ(RunAndDisturb(Recording(seconds, "OUT.h264"), "OUT.h264", [&] { pc->Freeze(true); }),
              ExitCode::kEndedEarly);
    EXPECT_THAT(out.str(), StartsWith("recorded "));
    EXPECT_THAT(err.str(), StartsWith("nuveqcam: no packets from the camera for 5 s; recorded "));
    EXPECT_THAT(err.str(), HasSubstr(amount + "complete up to that point; check with 'nuveqcam list'"));
  }
}

// The duration in the summary of a recording, in seconds; 0 without one.
double DurationIn(const std::string& summary) {
  const std::string name = "  duration ";
  const std::size_t begin = summary.find(name);
  return begin == std::string::npos ? 0 : std::stod(summary.substr(begin + name.size()));
}

TEST_F(Tool, RecordingOfASlowCameraIsComplete) {
  simulated::SimulatedPcSettings settings;
  settings.formats = {{graph::FourCc("YUYV"), 320, 240, 2'000'000}};
  for (const std::string requested : {"5", "10"}) {
    UsePc(settings);
    out.str("");
    EXPECT_EQ(Run({"record", "--seconds", "1", "--fps", requested, "-o", "OUT.mp4"}), ExitCode::kOk)
        << err.str();
    // The last packet arrives a second after the first one or later. The recording's times are smoothed; they
    // lag behind the arrivals by less than half a second.
    EXPECT_GT(DurationIn(out.str()), 0.5) << out.str();
  }
}

// A frame interval in the platform's unit.
constexpr REFERENCE_TIME IntervalOf(int fps) { return 10'000'000 / fps; }

// The largest size up to 1280x720 has ten frames per second, the next one thirty.
TEST_F(Tool, DefaultSizeHasTheFrameRate) {
  simulated::SimulatedPcSettings settings;
  settings.formats = {{graph::FourCc("YUYV"), 160, 120, IntervalOf(30)},
                      {graph::FourCc("YUYV"), 320, 240, IntervalOf(10)},
                      {graph::FourCc("YUYV"), 320, 240, IntervalOf(30)},
                      {graph::FourCc("YUYV"), 640, 480, IntervalOf(10)}};
  for (const std::vector<std::string>& words :
       {std::vector<std::string>{"record", "--seconds", "1", "-o", "OUT.h264"},
        {"snapshot", "-o", "OUT.png"}}) {
    UsePc(settings);
    out.str("");
    EXPECT_EQ(Run(words), ExitCode::kOk) << err.str();
    EXPECT_THAT(out.str(), HasSubstr(" 320x240")) << err.str();
  }
}

// The rates that the simulated camera delivers by picture width; other widths have their listed rate.
using RatesByWidth = std::map<std::uint32_t, int>;

// The simulated camera, which lists all sizes with thirty frames per second.
class OverstatingSource : public graph::CaptureSource {
 public:
  OverstatingSource(std::unique_ptr<graph::CaptureSource> camera, RatesByWidth rates)
      : m_camera(std::move(camera)), m_rates(std::move(rates)) {}

  HRESULT ListFormats(std::vector<graph::VideoFormat>& formats) override {
    const HRESULT hr = m_camera->ListFormats(formats);
    for (graph::VideoFormat& format : formats) {
      format.interval = IntervalOf(30);
    }
    return hr;
  }
  HRESULT SetFormat(graph::VideoFormat& format) override {
    graph::VideoFormat actual = format;
    if (const auto rate = m_rates.find(format.width); rate != m_rates.end()) {
      actual.interval = IntervalOf(rate->second);
    }
    return m_camera->SetFormat(actual);
  }
  HRESULT Start() override { return m_camera->Start(); }
  graph::CaptureResult Next(Deadline deadline, graph::CapturedFrame& frame) override {
    return m_camera->Next(deadline, frame);
  }
  void Recycle(const graph::CapturedFrame& frame) override { m_camera->Recycle(frame); }
  void Stop() override { m_camera->Stop(); }
  void Interrupt() override { m_camera->Interrupt(); }

 private:
  std::unique_ptr<graph::CaptureSource> m_camera;
  const RatesByWidth m_rates;
};

// A PC whose camera lists thirty frames per second for each size and delivers other rates.
class OverstatingPc : public devices::DeviceProvider {
 public:
  explicit OverstatingPc(RatesByWidth rates) : m_pc(Settings(rates)), m_rates(std::move(rates)) {}

  std::vector<devices::CaptureDevice> CaptureDevices() override {
    std::vector<devices::CaptureDevice> devices = m_pc.CaptureDevices();
    for (devices::CaptureDevice& device : devices) {
      device.makeSource = [make = device.makeSource, rates = m_rates] {
        return std::make_unique<OverstatingSource>(make(), rates);
      };
    }
    return devices;
  }
  std::vector<devices::UsbDevice> UsbDevices() override { return m_pc.UsbDevices(); }

 private:
  static simulated::SimulatedPcSettings Settings(const RatesByWidth& rates) {
    simulated::SimulatedPcSettings settings;
    settings.hasPlugInCamera = false;
    settings.formats.clear();
    for (const auto& [width, fps] : rates) {
      settings.formats.push_back({graph::FourCc("YUYV"), width, width * 3 / 4, IntervalOf(fps)});
    }
    return settings;
  }

  simulated::SimulatedPc m_pc;
  RatesByWidth m_rates;
};

TEST_F(Tool, DefaultSizeDeliversTheRateThatIsListed) {
  devices::SetDeviceProvider(std::make_shared<OverstatingPc>(RatesByWidth{{160, 30}, {320, 30}, {640, 10}}));
  EXPECT_EQ(Run({"record", "--seconds", "1", "-o", "OUT.h264"}), ExitCode::kOk);
  EXPECT_THAT(out.str(), HasSubstr("  request       320x240, 30 fps\n"));
  // On a busy PC the first packets show another rate.
  EXPECT_THAT(err.str(),
              MatchesRegex("nuveqcam: 640x480 delivers only about (9|1[0-4]) of 30 frames per second; "
                           "using 320x240 \\(--size chooses a size\\)\n"));
}

TEST_F(Tool, DefaultSizeIsFoundIfOnlyAMiddleOneDeliversTheRateThatIsListed) {
  // The middle one is much faster, so that it is recognised on a busy PC, too.
  devices::SetDeviceProvider(std::make_shared<OverstatingPc>(RatesByWidth{{160, 10}, {320, 120}, {640, 10}}));
  EXPECT_EQ(Run({"snapshot", "--skip", "0", "-o", "OUT.png"}), ExitCode::kOk);
  EXPECT_THAT(out.str(), HasSubstr("  size     320x240\n"));
  EXPECT_THAT(err.str(), HasSubstr("using 320x240"));
}

TEST_F(Tool, DefaultSizeOfASlowCameraIsThePreferredOne) {
  // The preferred one is much faster than the others and still slow, so that it is chosen on a busy PC, too.
  devices::SetDeviceProvider(std::make_shared<OverstatingPc>(RatesByWidth{{160, 3}, {320, 3}, {640, 8}}));
  EXPECT_EQ(Run({"snapshot", "--skip", "0", "-o", "OUT.png"}), ExitCode::kOk);
  EXPECT_THAT(out.str(), HasSubstr("  size     640x480\n"));
  EXPECT_THAT(err.str(), StartsWith("nuveqcam: no size delivers 30 frames per second, as in dim light"));
}

TEST_F(Tool, RequestedSizeIsKeptAtAnyRate) {
  devices::SetDeviceProvider(std::make_shared<OverstatingPc>(RatesByWidth{{320, 30}, {640, 10}}));
  EXPECT_EQ(Run({"record", "--seconds", "1", "--size", "640x480", "-o", "OUT.h264"}), ExitCode::kOk);
  EXPECT_THAT(out.str(), HasSubstr("  request       640x480, 30 fps\n"));
  EXPECT_EQ(err.str(), "");
}

TEST_F(Tool, ProbeReportsACameraThatListsMoreThanItDelivers) {
  devices::SetDeviceProvider(std::make_shared<OverstatingPc>(RatesByWidth{{160, 30}, {320, 15}}));
  EXPECT_EQ(Run({"probe", "--seconds", "1"}), ExitCode::kProbeFault);
  EXPECT_THAT(out.str(), HasSubstr("320x240 at 30 fps delivers 1"));
  EXPECT_THAT(out.str(), HasSubstr("  - best: 160x120 at 30 fps"));
  EXPECT_THAT(out.str(), HasSubstr("\nBehavior: 16 of 16 checks as documented\n"));
}

// What a command could leave behind in the process.
struct Resources {
  long descriptors = 0;
  std::uint64_t objects = 0;
  std::size_t heap = 0;  // bytes; 0 with sanitizers
};

Resources CurrentResources() {
  // Each open leaves a block by design.
  constexpr std::size_t kBlockBytes = 112;
  const std::size_t byDesign = com::LiveTaskBlocks() * kBlockBytes;
  const std::size_t heap = mallinfo2().uordblks;
  return {support::DescriptorCount(), com::LiveObjects(), heap > byDesign ? heap - byDesign : 0};
}

TEST_F(Tool, TwentyProbesLeaveNothingBehind) {
  ASSERT_TRUE(support::StartSanitizerThread());
  // mallinfo2 covers one arena; threads use others by default. Remains so for the other tests of the process.
  mallopt(M_ARENA_MAX, 1);  // NOLINT(concurrency-mt-unsafe): no other thread uses it
  Options options = OptionsOf({"probe"});
  options.probeSeconds = 0;
  timeouts.afterClose = std::chrono::milliseconds(1);
  const auto probe = [&] {
    devices::SetDeviceProvider(std::make_shared<OverstatingPc>(RatesByWidth{{64, 5000}}));
    out.str("");
    EXPECT_EQ(RunTool(options, {out, err}, timeouts), ExitCode::kProbeFault) << "faster than listed";
    EXPECT_THAT(out.str(), HasSubstr("\nBehavior: 16 of 16 checks as documented\n"));
    devices::SetDeviceProvider(nullptr);
  };
  const long threads = support::ThreadCount();
  // A joined thread may stay listed for a moment.
  const auto hasOnlyThreadsFromBefore = [&] { return support::ThreadCount() == threads; };
  probe();
  EXPECT_TRUE(WaitFor(hasOnlyThreadsFromBefore)) << "threads are left";
  const Resources first = CurrentResources();
  constexpr int kFurtherProbes = 19;
  for (int i = 0; i < kFurtherProbes; ++i) {
    probe();
  }
  EXPECT_TRUE(WaitFor(hasOnlyThreadsFromBefore)) << "threads are left";
  const Resources last = CurrentResources();
  EXPECT_EQ(last.descriptors, first.descriptors);
  EXPECT_EQ(last.objects, first.objects);
  // Freed blocks stay in the allocator's caches. A leak of 200 bytes per open exceeds this.
  constexpr std::size_t kHeapTolerance = std::size_t{64} << 10;
  EXPECT_LE(last.heap, first.heap + kHeapTolerance);
}

TEST_F(Tool, ProbeEndsIfTheCameraIsDisconnected) {
  simulated::SimulatedPcSettings settings;
  settings.formats = {{graph::FourCc("YUYV"), 320, 240, IntervalOf(30)}};
  UsePc(settings);
  // Only the third session, which is measured, has more than a few frames.
  const auto isMeasured = [earlier = graph::LatestStreamStats().delivered] {
    const auto delivered = graph::LatestStreamStats().delivered;
    return delivered > 30 && delivered != earlier;
  };
  EXPECT_EQ(RunAndDisturbWhen({"probe", "--seconds", "60", "--json"}, isMeasured,
                              [&] { pc->RemoveBuiltInCamera(); }),
            ExitCode::kProbeFault);
  EXPECT_THAT(out.str(), HasSubstr(R"("complete":false,)"));
  EXPECT_THAT(out.str(), HasSubstr(R"("findings":["stopped"])"));
  EXPECT_THAT(out.str(), HasSubstr("320x240 at 30 fps is disconnected after "));
  EXPECT_THAT(out.str(), HasSubstr(R"("checks":[])"));
}

TEST_F(Tool, SnapshotReportsADisconnect) {
  UsePc({});
  const auto hasNewFrames = [earlier = graph::LatestStreamStats().delivered] {
    const auto delivered = graph::LatestStreamStats().delivered;
    return delivered > 0 && delivered != earlier;
  };
  EXPECT_EQ(RunAndDisturbWhen({"snapshot", "--skip", "100000", "--size", "320x240", "-o", "OUT.png"},
                              hasNewFrames, [&] { pc->RemoveBuiltInCamera(); }),
            ExitCode::kEndedEarly);
  EXPECT_THAT(err.str(), StartsWith("nuveqcam: the camera was disconnected after "));
  EXPECT_THAT(err.str(), HasSubstr(" of 100001 pictures; nothing was written; check with 'nuveqcam list'"));
  EXPECT_TRUE(std::filesystem::is_empty(folder));
}

TEST_F(Tool, EndsWithoutAnyFrame) {
  timeouts.packet = std::chrono::milliseconds(1500);
  UsePc({});
  pc->Freeze(true);
  for (const std::vector<std::string>& words :
       {std::vector<std::string>{"record", "-o", "OUT.mp4"}, {"snapshot", "-o", "OUT.png"}}) {
    EXPECT_EQ(Run(words), ExitCode::kEndedEarly);
    EXPECT_TRUE(std::filesystem::is_empty(folder));
  }
  EXPECT_EQ(out.str(), "");
}

TEST_F(Tool, RunsRepeatedlyInOneProcess) {
  UsePc({});
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(Run({"snapshot", "--size", "320x240", "--skip", "0", "-o", "OUT.png"}), ExitCode::kOk)
        << err.str();
  }
}

// The simulated camera with failing calls.
class FailingSource : public graph::CaptureSource {
 public:
  FailingSource(std::unique_ptr<graph::CaptureSource> camera, HRESULT listResult, HRESULT setResult)
      : m_camera(std::move(camera)), m_listResult(listResult), m_setResult(setResult) {}

  HRESULT ListFormats(std::vector<graph::VideoFormat>& formats) override {
    return m_listResult != S_OK ? m_listResult : m_camera->ListFormats(formats);
  }
  HRESULT SetFormat(graph::VideoFormat& format) override {
    return m_setResult != S_OK ? m_setResult : m_camera->SetFormat(format);
  }
  HRESULT Start() override { return m_camera->Start(); }
  graph::CaptureResult Next(Deadline deadline, graph::CapturedFrame& frame) override {
    return m_camera->Next(deadline, frame);
  }
  void Recycle(const graph::CapturedFrame& frame) override { m_camera->Recycle(frame); }
  void Stop() override { m_camera->Stop(); }
  void Interrupt() override { m_camera->Interrupt(); }

 private:
  std::unique_ptr<graph::CaptureSource> m_camera;
  HRESULT m_listResult;
  HRESULT m_setResult;
};

class FailingPc : public devices::DeviceProvider {
 public:
  FailingPc(HRESULT listResult, HRESULT setResult) : m_listResult(listResult), m_setResult(setResult) {}

  std::vector<devices::CaptureDevice> CaptureDevices() override {
    std::vector<devices::CaptureDevice> devices = m_pc.CaptureDevices();
    for (devices::CaptureDevice& device : devices) {
      device.makeSource = [make = device.makeSource, listResult = m_listResult, setResult = m_setResult] {
        return std::make_unique<FailingSource>(make(), listResult, setResult);
      };
    }
    return devices;
  }
  std::vector<devices::UsbDevice> UsbDevices() override { return m_pc.UsbDevices(); }

 private:
  simulated::SimulatedPc m_pc;
  HRESULT m_listResult;
  HRESULT m_setResult;
};

TEST_F(Tool, ExplainsWhyTheCameraCannotBeOpened) {
  const std::vector<std::pair<HRESULT, std::string>> cases{
      {com::kDeviceInUse, "the camera is in use by another program; close that program and try again"},
      {E_ACCESSDENIED, "permission to use the camera was denied; add your user to the group video"},
      {com::kDeviceGone, "the camera was disconnected; check with 'nuveqcam list'"},
      {com::kDeviceIoError,
       "the camera cannot be read; try again; restarting the PC resets a built-in camera"},
      {E_FAIL, "(library log: Set camera parameter fail, error:-2147467259); choose one of the sizes"}};
  for (const auto& [result, text] : cases) {
    devices::SetDeviceProvider(std::make_shared<FailingPc>(S_OK, result));
    err.str("");
    EXPECT_EQ(Run({"record", "-o", "OUT.mp4"}), ExitCode::kCannotOpen);
    EXPECT_THAT(err.str(), StartsWith("nuveqcam: cannot open the camera at 1280x720, 30 fps (result -1001)"));
    EXPECT_THAT(err.str(), HasSubstr(text));
    EXPECT_TRUE(std::filesystem::is_empty(folder));
  }
}

TEST_F(Tool, ExplainsWhyTheCameraCannotBeRead) {
  devices::SetDeviceProvider(std::make_shared<FailingPc>(E_ACCESSDENIED, S_OK));
  EXPECT_EQ(Run({"list"}), ExitCode::kCannotOpen);
  EXPECT_EQ(
      err.str(),
      "nuveqcam: cannot read the camera's capabilities (result -1000): permission to use the camera was "
      "denied; add your user to the group video and log in again (library log: EnumMediaTypes fail, error: "
      "-2147024891)\n");
}

}  // namespace
}  // namespace nuveqcam
