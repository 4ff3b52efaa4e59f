#include "support/PlatformTest.h"

#include <filesystem>
#include <fstream>
#include <map>

namespace support {

namespace {

constexpr int kErrorLevel = 40000;
constexpr int kWarnLevel = 30000;

// The functions whose messages use __LINE__, and their source files.
const std::map<std::string, std::string>& FilesOfRealLines() {
  static const std::map<std::string, std::string> files = {
      {"OpenCamera", "CameraOperatorGraph.cpp"},
      {"InitCameraBasicInfo", "CameraOperatorGraph.cpp"},
      {"AddDeviceFilter", "CameraOperatorGraph.cpp"},
      {"AddSampleGrabberFilter", "CameraOperatorGraph.cpp"},
      {"QueryFilterPin", "CameraOperatorGraph.cpp"},
      {"SetCameraFormat", "CameraOperatorFormat.cpp"},
      {"ConfigSampleGrabber", "CameraOperatorFormat.cpp"},
  };
  return files;
}

// Returns the source file of a message that uses __LINE__; empty for other messages.
std::string FileOfRealLine(const std::string& text) {
  for (const auto& [function, file] : FilesOfRealLines()) {
    if (text.ends_with("(CameraOperator::" + function + ")")) {
      return file;
    }
  }
  return {};
}

bool IsLogStatement(const std::string& file, int line) {
  std::ifstream source(std::filesystem::path(NUVEQ_SOURCE_FOLDER) / file);
  std::string text;
  // Compilers differ on __LINE__ in statements of several lines.
  constexpr int kMaxStatementLines = 2;
  bool isLog = false;
  for (int number = 1; number <= line && std::getline(source, text); ++number) {
    isLog = isLog || (number >= line - kMaxStatementLines && text.find("OPERATOR_LOG") != std::string::npos);
  }
  return isLog;
}

std::string Line(const char* level, const std::string& file, int line, const std::string& text) {
  return std::string(level) + " " + file + ":" + std::to_string(line) + " " + text;
}

const char* LevelName(int level) {
  return level == kErrorLevel ? "ERROR" : level == kWarnLevel ? "WARN" : "other level";
}

}  // namespace

std::vector<std::uint8_t> Frame(std::size_t size, std::uint8_t value) {
  std::vector<std::uint8_t> frame(size, value);
  return frame;
}

std::string ErrorLine(int line, const std::string& text) {
  return Line("ERROR", "CameraOperator", line, text);
}

std::string ErrorLine(const std::string& text) { return ErrorLine(0, text); }

std::string WarnLine(int line, const std::string& text) { return Line("WARN", "CameraOperator", line, text); }

void PlatformTest::SetUp() { platform.Reset(scripted::LaptopPc()); }

void PlatformTest::TearDown() {
  EXPECT_THAT(platform.Alive(), ::testing::UnorderedElementsAreArray(m_left));
  EXPECT_THAT(platform.Misuse(), ::testing::IsEmpty());
  platform.DisposeOfAll();
}

std::vector<std::string> PlatformTest::LogLines() const {
  std::vector<std::string> lines;
  for (const scripted::LogLine& log : platform.Logs()) {
    const std::string text(log.text.begin(), log.text.end());
    int line = log.line;
    if (const std::string file = FileOfRealLine(text); !file.empty()) {
      EXPECT_TRUE(IsLogStatement(file, line)) << file << ":" << line << " " << text;
      line = 0;
    }
    lines.push_back(Line(LevelName(log.level), log.file, line, text));
  }
  return lines;
}

}  // namespace support
