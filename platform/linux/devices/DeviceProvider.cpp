#include "devices/DeviceProvider.h"

#include <algorithm>
#include <cctype>
#include <mutex>

#include "devices/LinuxDeviceProvider.h"

namespace devices {

namespace {

struct Current {
  std::mutex mutex;
  std::shared_ptr<DeviceProvider> provider = std::make_shared<LinuxDeviceProvider>();
};

Current& GetCurrent() {
  static Current current;
  return current;
}

}  // namespace

std::string ToDisplayNameForm(std::string id) {
  std::transform(id.begin(), id.end(), id.begin(),
                 [](unsigned char c) { return c == '\\' ? '#' : static_cast<char>(std::tolower(c)); });
  return id;
}

void SetDeviceProvider(std::shared_ptr<DeviceProvider> provider) {
  if (provider == nullptr) {
    provider = std::make_shared<LinuxDeviceProvider>();
  }
  const std::lock_guard lock(GetCurrent().mutex);
  std::swap(GetCurrent().provider, provider);
}

std::shared_ptr<DeviceProvider> CurrentDeviceProvider() {
  const std::lock_guard lock(GetCurrent().mutex);
  return GetCurrent().provider;
}

}  // namespace devices
