#include "devices/DeviceProvider.h"

#include <algorithm>
#include <cctype>
#include <mutex>

#include "devices/LinuxDeviceProvider.h"

namespace {

struct Slot {
  std::mutex mutex;
  std::shared_ptr<DeviceTree> tree = std::make_shared<LinuxDeviceTree>();
};

Slot& TheSlot() {
  static Slot slot;
  return slot;
}

}  // namespace

std::string DisplayForm(std::string id) {
  std::transform(id.begin(), id.end(), id.begin(),
                 [](unsigned char c) { return c == '\\' ? '#' : static_cast<char>(std::tolower(c)); });
  return id;
}

void UseDeviceTree(std::shared_ptr<DeviceTree> tree) {
  if (tree == nullptr) {
    tree = std::make_shared<LinuxDeviceTree>();
  }
  const std::lock_guard lock(TheSlot().mutex);
  std::swap(TheSlot().tree, tree);
}

std::shared_ptr<DeviceTree> CurrentDeviceTree() {
  const std::lock_guard lock(TheSlot().mutex);
  return TheSlot().tree;
}
