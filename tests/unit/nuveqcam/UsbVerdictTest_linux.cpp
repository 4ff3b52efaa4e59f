// The words for who says that a USB device can be removed, and who has a node open.
#include "devices/UsbVerdict.h"

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
  return VerdictText(removability);
}

TEST(UsbVerdict, IsTheFirmwares) {
  EXPECT_EQ(TextOf(devices::RemovabilitySource::kFirmware, false, "hardwired"),
            "built in: the firmware (ACPI) says that its port is hard-wired");
  EXPECT_EQ(TextOf(devices::RemovabilitySource::kFirmware, false, "not used"),
            "built in: the firmware (ACPI) says that nothing can be plugged into its port");
  EXPECT_EQ(TextOf(devices::RemovabilitySource::kFirmware, true, "hotplug"),
            "can be removed: the firmware (ACPI) says that its port is one for plugging in");
}

TEST(UsbVerdict, IsAHubs) {
  EXPECT_EQ(TextOf(devices::RemovabilitySource::kHub, false),
            "built in: hub 1-8 says that it cannot be removed");
  EXPECT_EQ(TextOf(devices::RemovabilitySource::kHub, true), "can be removed: hub 1-8 says that it can be");
  EXPECT_EQ(TextOf(devices::RemovabilitySource::kParentHub, true, "hardwired", "1-8", true),
            "counts as removable: it is fixed to hub 1-8, which can be removed");
  EXPECT_EQ(TextOf(devices::RemovabilitySource::kParentHub, true),
            "counts as removable: it is fixed to hub 1-8, which counts as removable");
}

TEST(UsbVerdict, IsNobodys) {
  EXPECT_EQ(TextOf(devices::RemovabilitySource::kUndeclared, true),
            "counts as removable: neither the firmware nor its hub says whether it can be removed");
  EXPECT_EQ(TextOf(devices::RemovabilitySource::kAttributeMissing, true),
            "counts as removable: the kernel does not show whether it can be removed");
}

TEST(UsbVerdict, IsTheKernelsWithoutASource) {
  EXPECT_EQ(TextOf(devices::RemovabilitySource::kAttribute, false),
            "built in: the kernel says so, but not who told it");
  EXPECT_EQ(TextOf(devices::RemovabilitySource::kAttribute, true),
            "can be removed: the kernel says so, but not who told it");
}

TEST(UsbVerdict, IsTheKernelsSilenceAgainstTheFirmwares) {
  devices::UsbRemovability removability;
  removability.source = devices::RemovabilitySource::kAttribute;
  removability.attribute = "unknown";
  removability.connectType = "hardwired";
  EXPECT_EQ(VerdictText(removability),
            "counts as removable: the kernel does not say whether it can be removed, though its port's "
            "connect type is \"hardwired\"");
}

TEST(UsbVerdict, IsTheKernelsAgainstTheFirmwares) {
  EXPECT_EQ(TextOf(devices::RemovabilitySource::kAttribute, false, "hotplug"),
            "built in: the kernel says so, though its port's connect type is \"hotplug\"");
  EXPECT_EQ(TextOf(devices::RemovabilitySource::kAttribute, true, "hardwired"),
            "can be removed: the kernel says so, though its port's connect type is \"hardwired\"");
}

TEST(UsbVerdict, HasAWordForEverySource) {
  const std::array sources{
      devices::RemovabilitySource::kFirmware,         devices::RemovabilitySource::kHub,
      devices::RemovabilitySource::kParentHub,        devices::RemovabilitySource::kUndeclared,
      devices::RemovabilitySource::kAttributeMissing, devices::RemovabilitySource::kAttribute};
  std::set<std::string> words;
  for (const devices::RemovabilitySource source : sources) {
    words.insert(VerdictWord(source));
  }
  EXPECT_THAT(words, ElementsAre("attribute", "firmware", "hub", "missing", "nobody", "parent"));
}

class NodeUsers : public TemporaryFolder {};

TEST_F(NodeUsers, AreOtherProcesses) {
  const std::string file = (folder / "node").string();
  const std::string link = (folder / "link").string();
  const std::string other = (folder / "other").string();
  const std::vector<std::string> files{other, file, link, (folder / "missing").string()};
  std::ofstream own(file);
  std::ofstream(other).put('x');
  std::filesystem::create_symlink("node", link);
  EXPECT_THAT(UsersOf(files), IsEmpty());
  // Holds it open as its standard input until that is over.
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
  EXPECT_THAT(UsersOf(files), ElementsAre(Pair(link, ElementsAre(user)), Pair(file, ElementsAre(user))));
  EXPECT_THAT(UsersOf({other}), IsEmpty());
  kill(process, SIGKILL);
  waitpid(process, nullptr, 0);
  EXPECT_THAT(UsersOf(files), IsEmpty());
}

}  // namespace
