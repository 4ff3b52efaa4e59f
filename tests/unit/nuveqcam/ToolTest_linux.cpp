// The whole tool in this process, over simulated PCs that its command line cannot describe.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <sstream>
#include <thread>

#include "TemporaryFolder.h"
#include "commands/Commands.h"
#include "devices/DeviceProvider.h"
#include "graph/StreamStats.h"
#include "simulated/SimulatedPc.h"

namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

class Tool : public TemporaryFolder {
 protected:
  void TearDown() override {
    devices::SetDeviceProvider(nullptr);
    TemporaryFolder::TearDown();
  }

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
    return RunTool(OptionsOf(words), {out, err}, patience);
  }

  // Runs the words and calls disturb as soon as the condition holds.
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

  // Runs the words and calls disturb as soon as the output file has content.
  ExitCode RunAndDisturb(const std::vector<std::string>& words, const std::string& file,
                         const std::function<void()>& disturb) {
    const auto hasContent = [&] {
      std::error_code error;
      const auto size = std::filesystem::file_size(folder / file, error);
      return !error && size > 0;
    };
    return RunAndDisturbWhen(words, hasContent, disturb);
  }

  Timeouts patience;
  std::shared_ptr<simulated::SimulatedPc> pc;
  std::ostringstream out;
  std::ostringstream err;
};

simulated::SimulatedPcSettings WithoutBuiltInCamera() {
  simulated::SimulatedPcSettings settings;
  settings.hasBuiltInCamera = false;
  return settings;
}

TEST_F(Tool, SaysWhichDevicesItSawWhereThereIsNoBuiltInCamera) {
  UsePc(WithoutBuiltInCamera());
  const std::vector<CaptureDeviceInfo> seen = ListCaptureDevices();
  ASSERT_EQ(seen.size(), 1);
  for (const std::vector<std::string>& words :
       {std::vector<std::string>{"list"}, {"record", "-o", "OUT.mp4"}, {"snapshot", "-o", "OUT.png"}}) {
    err.str("");
    EXPECT_EQ(Run(words), ExitCode::kNoCamera);
    EXPECT_THAT(err.str(), StartsWith("nuveqcam: this PC has no built-in camera; "));
    EXPECT_THAT(err.str(), HasSubstr(seen[0].name + ", not taken: " + seen[0].exclusionReason));
  }
  EXPECT_EQ(out.str(), "");
  EXPECT_TRUE(std::filesystem::is_empty(folder));
}

TEST_F(Tool, SaysThatThereIsNoDeviceAtAll) {
  simulated::SimulatedPcSettings settings = WithoutBuiltInCamera();
  settings.hasPlugInCamera = false;
  UsePc(settings);
  EXPECT_EQ(Run({"list"}), ExitCode::kNoCamera);
  EXPECT_THAT(err.str(), HasSubstr("no capture device was seen"));
}

TEST_F(Tool, AnswersJsonWithoutACameraToo) {
  UsePc(WithoutBuiltInCamera());
  EXPECT_EQ(Run({"list", "--json"}), ExitCode::kNoCamera);
  EXPECT_THAT(out.str(), StartsWith(R"({"cameras":[],"devices":[{"name":")"));
}

std::vector<std::string> Recording(const std::string& seconds, const std::string& file) {
  return {"record", "--seconds", seconds, "--size", "320x240", "-o", file};
}

TEST_F(Tool, RecordingCutShortByADisconnectEndsEarlyAndSaysHowMuchThereIs) {
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
      EXPECT_THAT(err.str(), HasSubstr(amount + "complete up to there; check with 'nuveqcam list'"));
    }
  }
}

TEST_F(Tool, RecordingCutShortByASilentCameraEndsEarlyAndSaysHowMuchThereIs) {
  patience.withoutPacket = std::chrono::seconds(5);  // longer than the recording
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
    EXPECT_THAT(err.str(), HasSubstr(amount + "complete up to there; check with 'nuveqcam list'"));
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
  for (const std::string asked : {"5", "10"}) {
    UsePc(settings);
    out.str("");
    EXPECT_EQ(Run({"record", "--seconds", "1", "--fps", asked, "-o", "OUT.mp4"}), ExitCode::kOk) << err.str();
    // The last packet arrives a second after the first one or later. The recording's times are smoothed; they
    // lag behind the arrivals by less than half a second.
    EXPECT_GT(DurationIn(out.str()), 0.5) << out.str();
  }
}

TEST_F(Tool, SnapshotOfACameraThatIsDisconnectedSaysSo) {
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

TEST_F(Tool, SurvivesACameraThatNeverDelivers) {
  patience.withoutPacket = std::chrono::milliseconds(1500);
  UsePc({});
  pc->Freeze(true);
  for (const std::vector<std::string>& words :
       {std::vector<std::string>{"record", "-o", "OUT.mp4"}, {"snapshot", "-o", "OUT.png"}}) {
    EXPECT_EQ(Run(words), ExitCode::kEndedEarly);
    EXPECT_TRUE(std::filesystem::is_empty(folder));
  }
  EXPECT_EQ(out.str(), "");
}

TEST_F(Tool, RunsAgainInTheSameProcess) {
  UsePc({});
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(Run({"snapshot", "--size", "320x240", "--skip", "0", "-o", "OUT.png"}), ExitCode::kOk)
        << err.str();
  }
}

// The simulated camera with an obstacle in front of it.
class ObstructedSource : public graph::CaptureSource {
 public:
  ObstructedSource(std::unique_ptr<graph::CaptureSource> camera, HRESULT atList, HRESULT atSet)
      : m_camera(std::move(camera)), m_atList(atList), m_atSet(atSet) {}

  HRESULT ListFormats(std::vector<graph::VideoFormat>& formats) override {
    return m_atList != S_OK ? m_atList : m_camera->ListFormats(formats);
  }
  HRESULT SetFormat(graph::VideoFormat& format) override {
    return m_atSet != S_OK ? m_atSet : m_camera->SetFormat(format);
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
  HRESULT m_atList;
  HRESULT m_atSet;
};

class ObstructedPc : public devices::DeviceProvider {
 public:
  ObstructedPc(HRESULT atList, HRESULT atSet) : m_atList(atList), m_atSet(atSet) {}

  std::vector<devices::CaptureDevice> CaptureDevices() override {
    std::vector<devices::CaptureDevice> devices = m_pc.CaptureDevices();
    for (devices::CaptureDevice& device : devices) {
      device.makeSource = [make = device.makeSource, atList = m_atList, atSet = m_atSet] {
        return std::make_unique<ObstructedSource>(make(), atList, atSet);
      };
    }
    return devices;
  }
  std::vector<devices::UsbDevice> UsbDevices() override { return m_pc.UsbDevices(); }

 private:
  simulated::SimulatedPc m_pc;
  HRESULT m_atList;
  HRESULT m_atSet;
};

TEST_F(Tool, ExplainsWhyTheCameraCannotBeOpened) {
  const std::vector<std::pair<HRESULT, std::string>> cases{
      {com::kDeviceInUse, "the camera is in use by another program; close that program and try again"},
      {E_ACCESSDENIED, "there is no permission to use the camera; add your user to the group video"},
      {com::kDeviceGone, "the camera has gone; see with 'nuveqcam list'"},
      {com::kDeviceIoError,
       "the camera cannot be read; try again; restarting the PC resets a built-in camera"},
      {E_FAIL, "(the library said: Set camera parameter fail, error:-2147467259); choose a size"}};
  for (const auto& [result, text] : cases) {
    devices::SetDeviceProvider(std::make_shared<ObstructedPc>(S_OK, result));
    err.str("");
    EXPECT_EQ(Run({"record", "-o", "OUT.mp4"}), ExitCode::kCannotOpen);
    EXPECT_THAT(err.str(), StartsWith("nuveqcam: cannot open the camera at 1280x720, 30 fps (result -1001)"));
    EXPECT_THAT(err.str(), HasSubstr(text));
    EXPECT_TRUE(std::filesystem::is_empty(folder));
  }
}

TEST_F(Tool, ExplainsWhyTheCameraCannotBeRead) {
  devices::SetDeviceProvider(std::make_shared<ObstructedPc>(E_ACCESSDENIED, S_OK));
  EXPECT_EQ(Run({"list"}), ExitCode::kCannotOpen);
  EXPECT_EQ(err.str(),
            "nuveqcam: cannot read what the camera offers (result -1000): there is no permission to use the "
            "camera; add "
            "your user to the group video and log in again (the library said: EnumMediaTypes fail, error: "
            "-2147024891)\n");
}

}  // namespace
