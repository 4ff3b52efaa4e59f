// Texts for the removability of USB devices, and the users of video nodes.
#include "devices/RemovabilityText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <set>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "TemporaryFolder.h"
#include "devices/NodeUsers.h"

namespace nuveqcam {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;

std::string TextOf(devices::RemovabilitySource source, bool isRemovable, const std::string& connectType = "",
                   const std::string& hub = "1-8", bool isHubRemovable = false) {
  devices::UsbRemovability removability;
  removability.source = source;
  removability.isRemovable = isRemovable;
  removability.connectType = connectType;
  removability.hub = hub;
  removability.isHubRemovable = isHubRemovable;
  return RemovabilityText(removability);
}

TEST(RemovabilityText, NamesTheFirmware) {
  EXPECT_EQ(TextOf(devices::RemovabilitySource::kFirmware, false, "hardwired"),
            "built in: the firmware (ACPI) declares its port hard-wired");
  EXPECT_EQ(TextOf(devices::RemovabilitySource::kFirmware, false, "not used"),
            "built in: the firmware (ACPI) declares its port unused");
  EXPECT_EQ(TextOf(devices::RemovabilitySource::kFirmware, true, "hotplug"),
            "removable: the firmware (ACPI) declares its port hot-pluggable");
}

TEST(RemovabilityText, NamesTheHub) {
  EXPECT_EQ(TextOf(devices::RemovabilitySource::kHub, false), "built in: hub 1-8 declares it fixed");
  EXPECT_EQ(TextOf(devices::RemovabilitySource::kHub, true), "removable: hub 1-8 declares it removable");
  EXPECT_EQ(TextOf(devices::RemovabilitySource::kParentHub, true, "hardwired", "1-8", true),
            "treated as removable: it is fixed to hub 1-8, which is removable");
  EXPECT_EQ(TextOf(devices::RemovabilitySource::kParentHub, true),
            "treated as removable: it is fixed to hub 1-8, which is treated as removable");
}

TEST(RemovabilityText, IsTreatedAsRemovableWithoutADeclaration) {
  EXPECT_EQ(TextOf(devices::RemovabilitySource::kUndeclared, true),
            "treated as removable: neither the firmware nor its hub declares whether it can be removed");
  EXPECT_EQ(TextOf(devices::RemovabilitySource::kAttributeMissing, true),
            "treated as removable: the kernel has no attribute that tells whether it can be removed");
}

TEST(RemovabilityText, NamesTheKernelWithoutASource) {
  EXPECT_EQ(TextOf(devices::RemovabilitySource::kAttribute, false),
            "built in: according to the kernel (source unknown)");
  EXPECT_EQ(TextOf(devices::RemovabilitySource::kAttribute, true),
            "removable: according to the kernel (source unknown)");
}

TEST(RemovabilityText, NamesAConnectTypeThatTheKernelDoesNotUse) {
  devices::UsbRemovability removability;
  removability.source = devices::RemovabilitySource::kAttribute;
  removability.attribute = "unknown";
  removability.connectType = "hardwired";
  EXPECT_EQ(RemovabilityText(removability),
            "treated as removable: the kernel does not report whether it can be removed, although its port's "
            "connect type is \"hardwired\"");
}

TEST(RemovabilityText, NamesAConnectTypeThatContradictsTheKernel) {
  EXPECT_EQ(TextOf(devices::RemovabilitySource::kAttribute, false, "hotplug"),
            "built in: according to the kernel, although its port's connect type is \"hotplug\"");
  EXPECT_EQ(TextOf(devices::RemovabilitySource::kAttribute, true, "hardwired"),
            "removable: according to the kernel, although its port's connect type is \"hardwired\"");
}

TEST(RemovabilityText, HasAJsonWordForEverySource) {
  const std::array sources{
      devices::RemovabilitySource::kFirmware,         devices::RemovabilitySource::kHub,
      devices::RemovabilitySource::kParentHub,        devices::RemovabilitySource::kUndeclared,
      devices::RemovabilitySource::kAttributeMissing, devices::RemovabilitySource::kAttribute};
  std::set<std::string> words;
  for (const devices::RemovabilitySource source : sources) {
    words.insert(SourceWord(source));
  }
  EXPECT_THAT(words, ElementsAre("attribute", "firmware", "hub", "missing", "nobody", "parent"));
}

class NodeUsers : public TemporaryFolder {};

TEST_F(NodeUsers, AreTheOtherProcesses) {
  const std::string file = (folder / "node").string();
  const std::string link = (folder / "link").string();
  const std::string other = (folder / "other").string();
  const std::vector<std::string> files{other, file, link, (folder / "missing").string()};
  std::ofstream own(file);
  std::ofstream(other).put('x');
  std::filesystem::create_symlink("node", link);
  EXPECT_THAT(FindNodeUsers(files), IsEmpty());
  // Keeps the file open as standard input until it is killed.
  posix_spawn_file_actions_t actions{};
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, file.c_str(), O_RDONLY, 0);
  std::string name = "sleep";
  std::string duration = "60";
  const std::array<char*, 3> words{name.data(), duration.data(), nullptr};
  pid_t process = 0;
  const int error = posix_spawnp(&process, "sleep", &actions, nullptr, words.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  ASSERT_EQ(error, 0);
  const std::string user = "sleep (" + std::to_string(process) + ")";
  EXPECT_THAT(FindNodeUsers(files),
              ElementsAre(Pair(link, ElementsAre(user)), Pair(file, ElementsAre(user))));
  EXPECT_THAT(FindNodeUsers({other}), IsEmpty());
  kill(process, SIGKILL);
  waitpid(process, nullptr, 0);
  EXPECT_THAT(FindNodeUsers(files), IsEmpty());
}

}  // namespace
}  // namespace nuveqcam
