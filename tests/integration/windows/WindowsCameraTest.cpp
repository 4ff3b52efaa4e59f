#include "WindowsCameraTest.h"

#include <filesystem>
#include <fstream>

void WindowsCameraTest::SetUp() {
  fixtures::UsePc(fixtures::Pc::kLaptop);
  fixtures::SetBehaviour(Unpaced());
  host.Reset();
  host.SetListener([this](const std::string& report) {
    if (!report.starts_with("data callback")) {
      reports.push_back(report);
    }
  });
  Load();
}

void WindowsCameraTest::TearDown() {
  if (IsMapped()) {
    if (HasFailure()) {
      // The test may have ended before its Close; an open camera would affect the following tests.
      Close();
    }
    Unload();
  }
  host.SetListener(nullptr);
  EXPECT_EQ(fixtures::LiveObjects(), 0);
  EXPECT_EQ(fixtures::StreamingThreads(), 0);
}

fixtures::CameraBehaviour WindowsCameraTest::Unpaced() {
  fixtures::CameraBehaviour behaviour;
  behaviour.pace = fixtures::Pace::kUnpaced;
  return behaviour;
}

void WindowsCameraTest::UseFormats(std::vector<fixtures::Format> formats) {
  fixtures::CameraBehaviour behaviour = Unpaced();
  behaviour.formats = std::move(formats);
  fixtures::SetBehaviour(behaviour);
}

void WindowsCameraTest::Record(std::uint32_t width, std::uint32_t height, std::uint32_t fps,
                               std::uint64_t packets) {
  ASSERT_EQ(Query(), 0);
  ASSERT_EQ(Open(width, height, fps), 0);
  EXPECT_TRUE(host.WaitForPackets(packets));
  EXPECT_GT(fixtures::LiveObjects(), 0);
  EXPECT_EQ(fixtures::StreamingThreads(), 1);
  Close();
}

std::vector<std::string> WindowsCameraTest::LoggingFunctions() const {
  std::vector<std::string> functions;
  for (const std::string& line : log.Lines()) {
    // "text(CameraOperator::Function)"
    const std::size_t begin = line.rfind(':') + 1;
    functions.push_back(line.substr(begin, line.size() - begin - 1));
  }
  return functions;
}

void WindowsCameraTest::SavePackets(const std::string& name) const {
  std::filesystem::create_directories(std::filesystem::path(name).parent_path());
  std::ofstream stream(name + ".h264", std::ios::binary);
  const std::vector<Packet> packets = host.Packets();
  for (const Packet& packet : packets) {
    stream.write(reinterpret_cast<const char*>(packet.bytes.data()),
                 static_cast<std::streamsize>(packet.bytes.size()));
  }
  std::ofstream count(name + ".count");
  count << packets.size();
  ASSERT_TRUE(stream.flush() && count.flush());
}
